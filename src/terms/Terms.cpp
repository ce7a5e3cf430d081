#include "terms/Terms.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <system_error>
#include <utility>

#include "config/Dates.h"
#include "config/StoreError.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "meetings/TextNorm.h"
#include "platform/FileLock.h"
#include "platform/Files.h"
#include "platform/Regex.h"
#include "platform/Text.h"

namespace velta {
namespace {

constexpr std::string_view kNewDictionaryNote =
    "Personal dictionary for the meeting notes pipeline. Same schema as "
    "pipeline/dictionary.example.json.";
constexpr const char* kBothRequired =
    "both wrong and right are required, for example wrong 蝶沙, right 碟煞";
constexpr const char* kSameText = "wrong and right are the same text, nothing to correct";
constexpr const char* kRightRefused =
    "right must be under 50 characters without <>{}[] or backslash (the transcription API rejects "
    "those)";
constexpr std::string_view kAppliesNext =
    "Applies to the next processed meeting; existing meetings are not rewritten";

constexpr std::size_t kRightLimit = 50;  // the first number of characters that is too many
constexpr std::string_view kForbiddenInRight = "<>{}[]\\";
constexpr int kIndent = 2;
// Long, because asking again and again is not fair: of many busy servers one may lose for seconds.
constexpr std::chrono::seconds kLockPatience(30);

// The 96 most common surnames; a term of one of them plus two characters reads like a full name.
constexpr std::u32string_view kSurnames =
    U"王李張劉陳楊黃趙吳周徐孫馬朱胡郭何高林羅鄭梁謝宋唐許韓馮鄧曹彭曾蕭田董袁潘蔣蔡余杜葉程蘇魏呂"
    U"丁任沈姚"
    U"盧姜崔鍾譚陸汪范金石廖賈夏韋方白鄒孟熊秦邱江尹薛段雷侯龍史陶黎賀顧毛郝龔邵萬錢嚴武戴莫孔向湯";
constexpr std::u32string_view kNicknamePrefixes = U"小阿老";

struct Term {
  std::string wrong;
  std::string right;
  std::string tier;
};

Term trimmed(const Terms::AddArguments& arguments) {
  Term term{std::string(trimWhiteSpace(arguments.wrong)),
            std::string(trimWhiteSpace(arguments.right)),
            std::string(trimWhiteSpace(arguments.tier.value_or("")))};
  if (term.tier.empty()) term.tier = "hint";
  return term;
}

// The checks that need no file. Throws StoreError.
void checkTexts(const Term& term) {
  if (term.tier != "auto" && term.tier != "hint") {
    throw StoreError::value("tier must be auto or hint, got '" + term.tier + "'");
  }
  if (term.wrong.empty() || term.right.empty()) throw StoreError::value(kBothRequired);
  if (term.wrong == term.right) throw StoreError::value(kSameText);
  if (characterCount(term.right) >= kRightLimit ||
      term.right.find_first_of(kForbiddenInRight) != std::string::npos) {
    throw StoreError::value(kRightRefused);
  }
}

bool isChinese(std::u32string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char32_t c) { return c >= 0x4E00 && c <= 0x9FFF; });
}

// Why the shape of `term` alone forbids replacing it automatically.
std::optional<std::string> refusalOfShape(std::string_view term) {
  const std::u32string characters = decodeUTF8(term);
  const auto startsWithOneOf = [&](std::u32string_view set) {
    return set.find(characters.front()) != std::u32string_view::npos;
  };
  if (isChinese(characters)) {
    if (characters.size() == 3 && startsWithOneOf(kSurnames)) {
      return "looks like a full Chinese name (common surname plus two characters)";
    }
    if (characters.size() == 2 && startsWithOneOf(kNicknamePrefixes)) {
      return "looks like a nickname (小／阿／老 plus one character)";
    }
    if (characters.size() == 1) return "is a single Chinese character";
  }
  static const Regex shortEnglish("^[A-Za-z]{1,2}$");
  if (shortEnglish.matches(term)) return "is English of two letters or fewer";
  return std::nullopt;
}

// Names that the dictionary itself knows: the user's own, and the speakers' with their aliases.
std::vector<std::string_view> namesIn(const JSONObject& dictionary) {
  std::vector<std::string_view> names;
  if (const auto self = dictionary.getString("self_name")) names.push_back(*self);
  const JSON::Array* speakers = dictionary.getArray("speakers");
  if (speakers == nullptr) return names;
  for (const JSON& element : *speakers) {
    const JSONObject* speaker = element.asObject();
    if (speaker == nullptr) continue;
    if (const auto name = speaker->getString("name")) names.push_back(*name);
    if (const JSON::Array* aliases = speaker->getArray("aliases")) {
      for (const JSON& alias : *aliases) {
        if (const auto name = alias.asString()) names.push_back(*name);
      }
    }
  }
  return names;
}

JSONObject newDictionary() {
  return {{"_note", kNewDictionaryNote},
          {"self_name", ""},
          {"terms", JSON::Array{}},
          {"speakers", JSON::Array{}}};
}

// Puts `term` in the place of the one with the same wrong text, or at the end. Returns whether it
// is new.
bool place(JSON::Array& terms, JSONObject term) {
  const std::string_view wrong = *term.getString("wrong");
  const auto same = std::find_if(terms.begin(), terms.end(), [&](const JSON& element) {
    const JSONObject* object = element.asObject();
    return object != nullptr && object->getString("wrong") == wrong;
  });
  if (same == terms.end()) {
    terms.emplace_back(std::move(term));
    return true;
  }
  *same = std::move(term);
  return false;
}

[[noreturn]] void failToSave(const std::string& path, const std::string& cause,
                             const std::string& nextStep) {
  throw StoreError::value("could not save " + path + ": " + cause +
                          ". Nothing was changed. Next step: " + nextStep +
                          ", then call add_term again");
}

[[noreturn]] void failToSave(const std::string& path, const std::system_error& error) {
  if (error.code() == std::errc::operation_would_block) {
    failToSave(path, "another program holds the lock on the data home", "wait a moment");
  }
  failToSave(path, error.code().message(), "make the folder and the file writable for this user");
}

// The dictionary as text. A number beyond a double's range would be written as a word that the next
// reader does not take, and the file with all its terms would count as broken: better refuse.
std::string readableText(const JSONObject& dictionary, const std::string& path) {
  std::string text = writeIndented(dictionary, kIndent);
  try {
    parseJSON(text);
  } catch (const JSONParseError& error) {
    failToSave(path, std::string("it holds a number that cannot be written (") + error.what() + ")",
               "correct the file");
  }
  return text;
}

}  // namespace

JSONObject Terms::addTerm(const AddArguments& arguments, const std::optional<std::string>& client,
                          Instant now) const {
  const Term term = trimmed(arguments);
  checkTexts(term);
  const std::string path = dictionaryFile();
  try {
    createDirectories(config_.home);
    const FileLock lock(config_.home, kLockPatience);
    JSONObject dictionary = loadDictionary();
    if (term.tier == "auto") {
      if (const auto reason = refusalAsAuto(term.wrong, dictionary)) {
        throw StoreError::value("Refused as auto: '" + term.wrong + "' " + *reason +
                                ". Names and very short strings may only be hints. Next step: call "
                                "add_term again with tier hint");
      }
    }
    if (dictionary.getArray("terms") == nullptr) dictionary.set("terms", JSON::Array{});
    JSON::Array& terms = *dictionary.get("terms")->asArray();
    const bool created = place(terms, {{"wrong", term.wrong},
                                       {"right", term.right},
                                       {"tier", term.tier},
                                       {"updated_at", localStamp(now)},
                                       {"updated_by", "mcp:" + client.value_or("unknown")}});
    const std::size_t count = terms.size();
    writeFileAtomically(path, readableText(dictionary, path));
    return {{"saved", true},
            {"created", created},
            {"term", JSONObject{{"right", term.right}, {"wrong", term.wrong}, {"tier", term.tier}}},
            {"dictionary_terms", count},
            {"note", kAppliesNext}};
  } catch (const std::system_error& error) {
    failToSave(path, error);
  }
}

std::string Terms::dictionaryFile() const { return joinPath(config_.home, "dictionary.json"); }

// What is not there, cannot be read or is not an object counts as a new dictionary.
JSONObject Terms::loadDictionary() const {
  try {
    JSON value = parseJSON(readFile(dictionaryFile()));
    if (JSONObject* object = value.asObject()) return std::move(*object);
  } catch (const std::system_error&) {
    return newDictionary();
  } catch (const JSONParseError&) {
    return newDictionary();
  }
  return newDictionary();
}

bool Terms::isPersonName(std::string_view term, const JSONObject& dictionary) const {
  const std::string wanted = lowerASCII(term);
  const auto isWanted = [&](std::string_view name) {
    return lowerASCII(trimWhiteSpace(name)) == wanted;
  };
  const auto known = namesIn(dictionary);
  if (std::any_of(known.begin(), known.end(), isWanted)) return true;
  const auto people = peopleNames_();
  return std::any_of(people.begin(), people.end(), isWanted);
}

std::optional<std::string> Terms::refusalAsAuto(std::string_view term,
                                                const JSONObject& dictionary) const {
  if (isPersonName(term, dictionary)) {
    return "is a person name in your speaker list or meetings";
  }
  return refusalOfShape(term);
}

}  // namespace velta
