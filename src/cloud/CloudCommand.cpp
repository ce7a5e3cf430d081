#include "cloud/CloudCommand.h"

#include <cstddef>
#include <string_view>
#include <system_error>
#include <variant>
#include <vector>

#include "cloud/ConnectionKey.h"
#include "cloud/WebMeetings.h"
#include "platform/Files.h"
#include "platform/Text.h"

namespace velta {
namespace {

constexpr int kDone = 0;
constexpr int kFailed = 1;

constexpr std::string_view kNotAKey =
    "That is not a Velta connection key (it starts with velta_pat_). Nothing saved. Copy it again "
    "from 連接 AI";
constexpr std::string_view kNothingSaved = "No saved key on this Mac";

using Print = std::function<void(const std::string&)>;

int connect(const std::string& text, const Cloud& cloud, const Print& print) {
  const std::string key(trimWhiteSpace(text));
  if (!isConnectionKey(key)) {
    print(std::string(kNotAKey));
    return kFailed;
  }
  // Tried before it is saved: a key that does not work never reaches the disk.
  const std::string path = keyFile(cloud.config());
  std::string found;
  try {
    found = std::to_string(cloud.fetchAll(key).size());
    saveKey(cloud.config(), key);
  } catch (const CloudError& error) {
    print(std::string("Not saved: ") + error.what());
    return kFailed;
  } catch (const std::system_error& error) {
    print("Not saved: could not write " + path + ": " + error.code().message());
    return kFailed;
  }
  print("Saved to " + path + " (only you can read it). Web meetings found: " + found +
        ". Restart your AI app so the MCP picks it up");
  print("CLOUD_CONNECTED meetings=" + found);  // the desktop app reads this line
  return kDone;
}

int status(const Cloud& cloud, const Print& print) {
  const auto key = loadKey(cloud.config());
  if (const NoKey* noKey = std::get_if<NoKey>(&key)) {
    print("Not connected: " + noKey->reason);
    return kFailed;
  }
  const auto& [text, source] = std::get<ConnectionKey>(key);
  try {
    const std::size_t meetings = cloud.fetchAll(text).size();
    print("Connected (key from " + source + "). Web meetings: " + std::to_string(meetings));
    return kDone;
  } catch (const CloudError& error) {
    print("Key from " + source + ", but: " + error.what());
    return kFailed;
  }
}

int disconnect(const Config& config, const Print& print) {
  const std::string path = keyFile(config);
  removeUnfinishedKeys(config);
  removeStaleTemporariesOfHome(config);  // they may hold a key, or meetings of the cache
  if (!fileStatus(path)) {
    print(std::string(kNothingSaved));
    return kDone;
  }
  removeFile(path);
  removeFile(WebMeetings::cacheFile(config));
  print("Deleted " + path + ". Also press 撤銷 on 連接 AI so the key stops working everywhere");
  return kDone;
}

}  // namespace

void removeStaleTemporariesOfHome(const Config& config) {
  const std::string unfinishedKey = "." + lastComponent(keyFile(config)) + ".";
  std::vector<std::string> directories = directoriesOfLinkedFiles(config.home);
  directories.push_back(config.home);
  for (const std::string& directory : directories) {
    removeStaleTemporaries(directory);
    removeStaleTemporaries(directory, unfinishedKey);
  }
}

int cloudCommand(const std::string& action,
                 const std::function<std::optional<std::string>()>& askForKey, const Cloud& cloud,
                 const Print& print) {
  if (action == "connect") return connect(askForKey().value_or(""), cloud, print);
  if (action == "status") return status(cloud, print);
  return disconnect(cloud.config(), print);
}

}  // namespace velta
