#include "index/Signature.h"

#include <algorithm>
#include <array>
#include <bit>
#include <functional>

#include "json/PartialWords.h"

namespace velta {
namespace {

// Bytes of text for a block, to begin with: half of what a text needs in which every gram is new.
constexpr std::size_t kBytesPerBlock = 16;
// Before it is folded a signature has a multiple of so many blocks, so that it can be folded by any
// divisor of this number.
constexpr std::size_t kSizeUnit = 60;
// At most so full folding makes a signature: a word of two characters that never meet then passes
// five meetings in a hundred by chance. One that is half as large lets three times as many pass.
constexpr double kFullness = 0.25;
constexpr std::size_t kBlockBits = 64;

// Grams of different kinds never have one number.
constexpr std::uint64_t kSingle = std::uint64_t{1} << 60U;
constexpr std::uint64_t kPair = std::uint64_t{2} << 60U;
constexpr std::uint64_t kTriple = std::uint64_t{3} << 60U;
constexpr std::uint64_t kQuadruple = std::uint64_t{4} << 60U;
constexpr unsigned kCharacterBits = 21;

constexpr std::uint64_t kGoldenRatio = 0x9E3779B97F4A7C15;  // of 2^64, odd: a multiplier that mixes

std::uint64_t pairOf(std::uint64_t before, std::uint64_t character) {
  return kPair | before << kCharacterBits | character;
}

struct Character {
  std::uint32_t code;
  std::size_t length;
};

// The character at the beginning of well-formed UTF-8 that is no ASCII.
inline Character wideCharacter(const char* at) {
  const auto byte = [at](std::size_t i) { return static_cast<std::uint32_t>(at[i]) & 0x3FU; };
  const auto lead = static_cast<unsigned char>(*at);
  if (lead < 0xE0) return {(lead & 0x1FU) << 6U | byte(1), 2};
  if (lead < 0xF0) return {(lead & 0x0FU) << 12U | byte(1) << 6U | byte(2), 3};
  return {(lead & 0x07U) << 18U | byte(1) << 12U | byte(2) << 6U | byte(3), 4};
}

std::uint64_t lowered(char ascii) {
  const auto byte = static_cast<unsigned char>(ascii);
  return byte >= 'A' && byte <= 'Z' ? byte + 0x20U : byte;
}

// A run of ASCII characters without a blank, with its bytes once more in registers when there are
// less than sixteen; zeros when there are more.
struct Run {
  std::string_view text;
  PartialWords bytes;
};

bool isRunByte(char byte) { return byte > ' ' && static_cast<unsigned char>(byte) < 0x80; }

constexpr std::uint64_t eachByte(std::uint8_t byte) { return 0x0101010101010101U * byte; }

// How many bytes of `word`, from its lowest, are bytes of a run.
std::size_t leadingRunBytes(std::uint64_t word) {
  const std::uint64_t others = (~(word + eachByte(0x7F - ' ')) | word) & eachByte(0x80);
  return static_cast<std::size_t>(std::countr_zero(others)) / 8;
}

std::uint64_t lowestBytes(std::uint64_t word, std::size_t count) {
  return count == sizeof word ? word : word & ((std::uint64_t{1} << (8 * count)) - 1);
}

// The run at the beginning of [at, end). Its length is found without a branch for each byte, since
// nobody can foretell where a word ends.
Run runAt(const char* at, const char* end) {
  if (std::endian::native == std::endian::little && end - at >= 16) {
    const auto low = loadWord<std::uint64_t>(at);
    const auto high = loadWord<std::uint64_t>(at + 8);
    const std::size_t lowCount = leadingRunBytes(low);
    const std::size_t highCount = lowCount == 8 ? leadingRunBytes(high) : 0;
    if (highCount < 8) {
      return {{at, lowCount + highCount},
              {lowestBytes(low, lowCount), lowestBytes(high, highCount)}};
    }
  }
  return {{at, std::find_if_not(at, end, isRunByte)}, {}};
}

// Calls parts.single(character) for every character beyond ASCII, parts.run(run) for every run, and
// parts.pair(gram) for every pair of neighbours of which one is beyond ASCII.
template <class Parts>
void visitParts(std::string_view text, Parts& parts) {
  std::uint64_t before = 0;  // the character before, 0 at the beginning of a word
  const char* at = text.data();
  for (const char* const end = at + text.size(); at < end;) {
    if (static_cast<unsigned char>(*at) >= 0x80) {
      const Character character = wideCharacter(at);
      parts.single(character.code);
      if (before != 0) parts.pair(pairOf(before, character.code));
      before = character.code;
      at += character.length;
    } else if (!isRunByte(*at)) {  // no word spans white space
      before = 0;
      ++at;
    } else {
      const Run run = runAt(at, end);
      if (before != 0) parts.pair(pairOf(before, lowered(*at)));
      parts.run(run);
      before = lowered(run.text.back());
      at += run.text.size();
    }
  }
}

// Calls sink(gram) for every gram inside a run.
template <class Sink>
void visitGramsOfRun(std::string_view run, Sink sink) {
  std::uint64_t before =
      lowered(run.front());  // the characters just before, at most three, a byte each
  for (const char character : run.substr(1)) {
    const std::uint64_t code = lowered(character);
    sink(pairOf(before & 0xFF, code));
    before = before << 8U | code;
    if (before > 0xFFFF) sink(kTriple | (before & 0xFFFFFF));
    if (before > 0xFFFFFF) sink(kQuadruple | before);
    before &= 0xFFFFFF;
  }
}

// The bits of a gram.
struct Place {
  std::size_t block;
  std::uint64_t bits;
};

// Multiply-shift hashing (Dietzfelbinger et al., 1997): the upper half of the product with a random
// odd number is spread well. Scaled to the size, without dividing, it gives the block; the bits in
// the block come from those of the product that the block hardly depends on.
Place placeOf(std::uint64_t gram, std::uint64_t multiplier, std::uint64_t size) {
  const std::uint64_t hash = gram * multiplier;
  const auto bit = [hash](unsigned from) {
    return std::uint64_t{1} << (hash >> from) % kBlockBits;
  };
  return {static_cast<std::size_t>(((hash >> 32U) * size) >> 32U), bit(32) | bit(26)};
}

// The mixer of SplitMix64 (Steele et al., 2014), made odd.
std::uint64_t multiplierOf(std::uint32_t salt) {
  std::uint64_t mixed = (salt + std::uint64_t{1}) * kGoldenRatio;
  mixed = (mixed ^ (mixed >> 30U)) * 0xBF58476D1CE4E5B9;
  mixed = (mixed ^ (mixed >> 27U)) * 0x94D049BB133111EB;
  return (mixed ^ (mixed >> 31U)) | 1U;
}

// Remembers the runs of less than sixteen bytes that came last. English repeats its words: this
// spares four in five the hashing of all their grams.
class RecentRuns {
 public:
  // Whether the run is remembered; from now on it is. A longer run never is.
  bool meet(const PartialWords& run) {
    if (run.low == 0) return false;
    const std::uint64_t hash = (run.low ^ run.high * 31) * kGoldenRatio;
    PartialWords& slot = slots_[hash >> (64U - kSlotBits)];
    if (slot.low == run.low && slot.high == run.high) return true;
    slot = run;
    return false;
  }

 private:
  static constexpr unsigned kSlotBits = 10;
  std::array<PartialWords, std::size_t{1} << kSlotBits> slots_;
};

// Collects the grams of texts. Characters of the basic plane are ticked off first and hashed once.
class GramCollector {
 public:
  GramCollector(std::vector<std::uint64_t>& blocks, std::uint64_t multiplier)
      : blocks_(blocks.data()), size_(blocks.size()), multiplier_(multiplier) {}

  void single(std::uint32_t code) {
    if (code <= 0xFFFF) {
      met_[code / 64] |= std::uint64_t{1} << (code % 64);
    } else {
      add(kSingle | code);
    }
  }

  void pair(std::uint64_t gram) { add(gram); }

  void run(const Run& run) {
    if (recent_.meet(run.bytes)) return;
    visitGramsOfRun(run.text, [this](std::uint64_t gram) { add(gram); });
  }

  // Adds the characters that were ticked off; to be called once, in the end.
  void finish() {
    for (std::size_t word = 0; word < met_.size(); ++word) {
      for (std::uint64_t left = met_[word]; left != 0; left &= left - 1)
        add(kSingle | (word * 64 + static_cast<std::size_t>(std::countr_zero(left))));
    }
  }

 private:
  void add(std::uint64_t gram) {
    const Place place = placeOf(gram, multiplier_, size_);
    blocks_[place.block] |= place.bits;
  }

  std::uint64_t* blocks_;
  std::uint64_t size_;
  std::uint64_t multiplier_;
  std::array<std::uint64_t, 0x10000 / 64> met_ = {};
  RecentRuns recent_;
};

// Puts the grams of a word into a list.
class GramList {
 public:
  explicit GramList(std::vector<std::uint64_t>& grams) : grams_(grams) {}

  void single(std::uint32_t code) { pair(kSingle | code); }
  void pair(std::uint64_t gram) { grams_.push_back(gram); }
  void run(const Run& run) {
    visitGramsOfRun(run.text, [this](std::uint64_t gram) { pair(gram); });
  }

 private:
  std::vector<std::uint64_t>& grams_;
};

// The share of bits that are set, from every eighth block.
double fullnessOf(const std::vector<std::uint64_t>& blocks) {
  std::size_t looked = 0;
  std::size_t set = 0;
  for (std::size_t i = 0; i < blocks.size(); i += 8) {
    set += static_cast<std::size_t>(std::popcount(blocks[i]));
    looked += kBlockBits;
  }
  return static_cast<double>(set) / static_cast<double>(looked);
}

// Makes so many neighbouring blocks one that the signature is nearly as full as it may be. Since a
// block is a hash scaled to the size, this is the signature that a smaller size would have given.
std::vector<std::uint64_t> folded(const std::vector<std::uint64_t>& blocks) {
  const double most = kFullness / std::max(fullnessOf(blocks), kFullness / kSizeUnit);
  std::size_t factor = std::max<std::size_t>(static_cast<std::size_t>(most), 1);
  while (kSizeUnit % factor != 0) --factor;
  std::vector<std::uint64_t> result(blocks.size() / factor);
  auto from = blocks.begin();
  for (std::uint64_t& block : result) {
    for (std::size_t i = 0; i < factor; ++i) block |= *from++;
  }
  return result;
}

}  // namespace

std::vector<std::uint64_t> gramsOf(std::string_view lowered) {
  std::vector<std::uint64_t> grams;
  GramList list(grams);
  visitParts(lowered, list);
  // The more a gram spans the rarer it is: those are asked for first.
  std::ranges::sort(grams, std::ranges::greater());
  return grams;
}

Signature::Signature(const std::vector<std::string_view>& texts, std::uint32_t salt)
    : multiplier_(multiplierOf(salt)) {
  std::size_t bytes = 0;
  for (const std::string_view text : texts) bytes += text.size();
  if (bytes == 0) return;
  blocks_.resize((bytes / kBytesPerBlock / kSizeUnit + 1) * kSizeUnit);
  GramCollector grams(blocks_, multiplier_);
  for (const std::string_view text : texts) visitParts(text, grams);
  grams.finish();
  blocks_ = folded(blocks_);
}

bool SignatureView::mayHold(const std::vector<std::uint64_t>& grams) const {
  if (size == 0) return false;
  return std::ranges::all_of(grams, [this](std::uint64_t gram) {
    const Place place = placeOf(gram, multiplier, size);
    return (blocks[place.block] & place.bits) == place.bits;
  });
}

}  // namespace velta
