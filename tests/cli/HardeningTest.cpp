// What the compiler and the linker were asked to build in against abuse of memory faults, read off
// the program's own file (ELF, System V ABI).
#include <cstddef>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#if defined(__linux__) && defined(__LP64__)

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <elf.h>

#include "platform/Files.h"

namespace velta {
namespace {

// The program's file as a loader sees it.
class Program {
 public:
  Program() { bytes_ = readFile(VELTA_BINARY); }

  Elf64_Ehdr header() const { return at<Elf64_Ehdr>(0); }

  std::vector<Elf64_Phdr> segments(Elf64_Word type) const {
    std::vector<Elf64_Phdr> found;
    for (std::size_t i = 0; i < header().e_phnum; ++i) {
      const auto segment = at<Elf64_Phdr>(header().e_phoff + i * sizeof(Elf64_Phdr));
      if (segment.p_type == type) found.push_back(segment);
    }
    return found;
  }

  // The value of a tag of the dynamic section, 0 without one.
  std::uint64_t dynamic(Elf64_Sxword tag) const {
    for (const Elf64_Phdr& segment : segments(PT_DYNAMIC)) {
      for (std::size_t i = 0; i < segment.p_filesz; i += sizeof(Elf64_Dyn)) {
        const auto entry = at<Elf64_Dyn>(segment.p_offset + i);
        if (entry.d_tag == tag) return entry.d_un.d_val;
      }
    }
    return 0;
  }

  std::string_view code() const {
    for (const Elf64_Phdr& segment : segments(PT_LOAD)) {
      if ((segment.p_flags & PF_X) == 0) continue;
      return std::string_view(bytes_).substr(segment.p_offset, segment.p_filesz);
    }
    return {};
  }

  // Whether the program asks the C library for a function, by its whole name.
  bool imports(std::string_view function) const {
    const std::string terminated = std::string(1, '\0').append(function) + '\0';
    return bytes_.find(terminated) != std::string::npos;
  }

 private:
  template <class Structure>
  Structure at(std::size_t offset) const {
    Structure structure;
    std::memcpy(&structure, bytes_.substr(offset, sizeof structure).data(), sizeof structure);
    return structure;
  }

  std::string bytes_;
};

TEST(Hardening, ProgramIsLoadedAtAnAddressThatNobodyKnows) {
  const Program program;
  EXPECT_EQ(program.header().e_type, ET_DYN);
  EXPECT_EQ(program.segments(PT_INTERP).size(), 1U);
  EXPECT_NE(program.dynamic(DT_FLAGS_1) & DF_1_PIE, 0U);
}

TEST(Hardening, AddressesOfFunctionsAreBoundAtStartAndThenReadOnly) {
  const Program program;
  EXPECT_EQ(program.segments(PT_GNU_RELRO).size(), 1U);
  EXPECT_NE(program.dynamic(DT_FLAGS) & DF_BIND_NOW, 0U);
  EXPECT_NE(program.dynamic(DT_FLAGS_1) & DF_1_NOW, 0U);
}

TEST(Hardening, NothingIsBothWritableAndExecutable) {
  const Program program;
  const std::vector<Elf64_Phdr> stacks = program.segments(PT_GNU_STACK);
  ASSERT_EQ(stacks.size(), 1U);
  EXPECT_EQ(stacks.front().p_flags & PF_X, 0U);
  for (const Elf64_Phdr& segment : program.segments(PT_LOAD)) {
    EXPECT_NE(segment.p_flags & (PF_W | PF_X), Elf64_Word{PF_W | PF_X});
  }
}

#if defined(_FORTIFY_SOURCE) && _FORTIFY_SOURCE > 0

TEST(Hardening, CallsThatFillMemoryAreChecked) {
  const Program program;
  EXPECT_TRUE(program.imports("__memcpy_chk"));
  EXPECT_TRUE(program.imports("__snprintf_chk"));
  EXPECT_EQ(_FORTIFY_SOURCE, 3);
}

#endif

#if !defined(__SANITIZE_ADDRESS__)

TEST(Hardening, ReturnAddressesAreGuarded) { EXPECT_TRUE(Program().imports("__stack_chk_fail")); }

#endif

#if defined(__x86_64__)

TEST(Hardening, IndirectJumpsLandOnlyWhereFunctionsBegin) {
  const std::string_view landing("\xF3\x0F\x1E\xFA", 4);  // endbr64
  const Program program;
  const std::string_view code = program.code();
  std::size_t landings = 0;
  for (std::size_t i = code.find(landing); i != std::string_view::npos;
       i = code.find(landing, i + landing.size())) {
    ++landings;
  }
  EXPECT_GT(landings, 1000U);
}

#endif

}  // namespace
}  // namespace velta

#endif
