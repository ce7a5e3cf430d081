// TestStore: a store over an index that a test fills by hand.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "config/StoreError.h"
#include "index/TestHome.h"
#include "json/JSON.h"
#include "json/JSONWriter.h"
#include "store/Store.h"

namespace velta::test {

class TestStore {
 public:
  TestStore() : store(home.index, [this] { return status(); }) {
    access.allowed = {"private", "work", "shared"};
    access.hidePrivate = false;
  }

  // Inserts a meeting with the id `id`; `more` holds further members of its canonical form.
  void add(const std::string& id, const std::string& more = "",
           const std::string& visibility = "work", std::vector<std::string> tags = {}) {
    home.index.insert(meetingOf(R"({"id": ")" + id + R"(", "source": "recordings")" +
                                (more.empty() ? "" : ", " + more) + "}"),
                      "/" + id, visibility, std::move(tags), 0);
  }

  JSONObject list(const Store::ListArguments& arguments = {}) const {
    return store.listMeetings(arguments, access);
  }

  // Searches lines and digest items.
  JSONObject searchFor(const std::string& query) const {
    return search({.query = query, .readTranscripts = true});
  }
  JSONObject search(const Store::SearchArguments& arguments) const {
    return store.searchTranscripts(arguments, access);
  }

  JSONObject meeting(const std::string& id,
                     const std::optional<std::vector<std::string>>& sections = {}) const {
    return store.getMeeting(id, sections, access);
  }
  JSONObject transcript(const Store::TranscriptArguments& arguments) const {
    return store.getTranscript(arguments, access);
  }
  JSONObject person(const std::string& name) const { return personIn({.name = name}); }
  JSONObject personIn(const Store::PersonArguments& arguments) const {
    return store.getPerson(arguments, access);
  }

  TestHome home;
  Access access;
  JSONObject statusObject{{"age_hours", 0.5}};
  std::string statusError;  // when not empty: what the status throws
  Store store;

 private:
  JSONObject status() const {
    if (!statusError.empty()) throw StoreError::index(statusError);
    return statusObject;
  }
};

// The message of the StoreError that `action` throws.
template <class Action>
std::string storeErrorOf(Action action) {
  try {
    action();
  } catch (const StoreError& error) {
    return error.what();
  }
  return "(no error)";
}

// The values of `key` in the objects of an array, strings as they are and others as JSON.
inline std::vector<std::string> column(const JSONObject& result, std::string_view array,
                                       std::string_view key) {
  std::vector<std::string> values;
  for (const JSON& item : *result.getArray(array)) {
    const JSON& value = *item.asObject()->get(key);
    values.push_back(value.asString() ? std::string(*value.asString()) : writeCompact(value));
  }
  return values;
}

}  // namespace velta::test
