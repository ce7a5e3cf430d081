#include "platform/Regex.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <cstdint>
#include <stdexcept>

#include <pcre2.h>

namespace velta {
namespace {

struct MatchDataDeleter {
  void operator()(pcre2_match_data* data) const { pcre2_match_data_free(data); }
};
using MatchData = std::unique_ptr<pcre2_match_data, MatchDataDeleter>;

struct CompileContextDeleter {
  void operator()(pcre2_compile_context* context) const { pcre2_compile_context_free(context); }
};
using CompileContext = std::unique_ptr<pcre2_compile_context, CompileContextDeleter>;

std::string describe(int error) {
  PCRE2_UCHAR text[256];
  pcre2_get_error_message(error, text, sizeof text);
  return reinterpret_cast<const char*>(text);
}

// Offset just after the code point at `from`; beyond the end when there is none.
std::size_t nextCodePoint(std::string_view text, std::size_t from) {
  ++from;
  while (from < text.size() && (static_cast<unsigned char>(text[from]) & 0xC0) == 0x80) ++from;
  return from;
}

// "\s" and character classes by Unicode properties; "$" at the very end only.
constexpr std::uint32_t kOptions = PCRE2_UTF | PCRE2_UCP | PCRE2_DOLLAR_ENDONLY;

}  // namespace

struct Regex::Code {
  explicit Code(pcre2_code* compiled) : code(compiled) {}
  ~Code() { pcre2_code_free(code); }
  Code(const Code&) = delete;
  Code& operator=(const Code&) = delete;

  pcre2_code* code;
};

std::string_view Regex::Match::group(std::size_t index) const {
  if (2 * index + 1 >= offsets_.size()) return {};
  const std::size_t begin = offsets_[2 * index];
  if (begin == PCRE2_UNSET) return {};
  return subject_.substr(begin, offsets_[2 * index + 1] - begin);
}

std::size_t Regex::Match::begin() const { return offsets_[0]; }

std::size_t Regex::Match::end() const { return offsets_[1]; }

Regex::Regex(std::string_view pattern) {
  const CompileContext context(pcre2_compile_context_create(nullptr));
  pcre2_set_newline(context.get(), PCRE2_NEWLINE_ANY);  // "." stops at every Unicode line end
  int error = 0;
  PCRE2_SIZE position = 0;
  pcre2_code* compiled = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(),
                                       kOptions, &error, &position, context.get());
  if (compiled == nullptr) {
    throw std::invalid_argument("pattern " + std::string(pattern) + ": " + describe(error) +
                                " at offset " + std::to_string(position));
  }
  code_ = std::make_unique<Code>(compiled);
}

Regex::~Regex() = default;
Regex::Regex(Regex&&) noexcept = default;
Regex& Regex::operator=(Regex&&) noexcept = default;

std::optional<Regex::Match> Regex::search(std::string_view subject, std::size_t from) const {
  const MatchData data(pcre2_match_data_create_from_pattern(code_->code, nullptr));
  const int count = pcre2_match(code_->code, reinterpret_cast<PCRE2_SPTR>(subject.data()),
                                subject.size(), from, PCRE2_NO_UTF_CHECK, data.get(), nullptr);
  // A match that runs into PCRE2's limits counts as none: the text is hostile, not the pattern.
  if (count < 0) return std::nullopt;
  Match match;
  match.subject_ = subject;
  const PCRE2_SIZE* offsets = pcre2_get_ovector_pointer(data.get());
  match.offsets_.assign(offsets, offsets + 2 * static_cast<std::size_t>(count));
  return match;
}

bool Regex::matches(std::string_view subject) const { return search(subject).has_value(); }

std::string Regex::replaceAll(std::string_view subject, std::string_view replacement) const {
  std::string replaced;
  std::size_t copied = 0;
  std::size_t from = 0;
  while (from <= subject.size()) {
    const auto match = search(subject, from);
    if (!match) break;
    replaced += subject.substr(copied, match->begin() - copied);
    replaced += replacement;
    copied = match->end();
    from = match->end() == match->begin() ? nextCodePoint(subject, copied) : copied;
  }
  replaced += subject.substr(copied);
  return replaced;
}

}  // namespace velta
