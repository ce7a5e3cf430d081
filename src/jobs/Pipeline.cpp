#include "jobs/Pipeline.h"

#include <array>
#include <optional>
#include <string_view>

#include "config/StoreError.h"
#include "platform/Files.h"

namespace velta {
namespace {

constexpr const char* kPipelineNotFound =
    "Pipeline not found: pipeline/process_meeting.py needs the Velta source checkout. Next step: "
    "set VELTA_REPO to the checkout in the MCP client's env, or process the recording in Velta.app";
constexpr const char* kNoPython =
    "No Python 3.11 to 3.14 for the pipeline. Next step: install Python 3.13 from python.org or "
    "Homebrew, or set VELTA_PIPELINE_PYTHON";

constexpr std::string_view kScript = "pipeline/process_meeting.py";
constexpr int kFoldersToTry = 6;  // the executable's own and five above it
constexpr std::array<const char*, 4> kMinorVersions = {"13", "12", "11", "14"};  // best first

// The variable's value, absent when it is not set or empty.
std::optional<std::string> variable(const Config& config, const std::string& name) {
  const auto found = config.env.find(name);
  if (found == config.env.end() || found->second.empty()) return std::nullopt;
  return found->second;
}

bool holdsPipeline(const std::string& folder) {
  return fileStatus(joinPath(folder, kScript)).has_value();
}

std::vector<std::string> pythonCandidates(const std::string& checkout) {
  std::vector<std::string> candidates = {joinPath(checkout, "mcp/.venv/bin/python")};
  for (const std::string minor : kMinorVersions) {
    const std::string name = "python3." + minor;
    const std::string framework = "/Library/Frameworks/Python.framework/Versions/3." + minor;
    candidates.push_back("/opt/homebrew/bin/" + name);
    candidates.push_back(joinPath(framework, "bin/" + name));
    candidates.push_back("/usr/local/bin/" + name);
  }
  candidates.emplace_back("/opt/homebrew/bin/python3");
  candidates.emplace_back("/usr/local/bin/python3");
  return candidates;
}

}  // namespace

std::string findPipelineCheckout(const Config& config, const std::string& executable) {
  if (const auto named = variable(config, "VELTA_REPO")) {
    // Named by the user, so nothing else will do.
    std::string checkout = absolutePath(expandTilde(*named, config.userHome()));
    if (holdsPipeline(checkout)) return checkout;
    throw StoreError::value(kPipelineNotFound);
  }
  // An unknown executable has no folder; the current one, which anybody may fill, is none of ours.
  if (executable.empty()) throw StoreError::value(kPipelineNotFound);
  std::string folder = parentPath(executable);
  for (int tried = 0; tried < kFoldersToTry; ++tried) {
    if (holdsPipeline(folder)) return folder;
    folder = parentPath(folder);
  }
  throw StoreError::value(kPipelineNotFound);
}

std::string findPipelinePython(const Config& config, const std::string& checkout) {
  if (const auto named = variable(config, "VELTA_PIPELINE_PYTHON")) return *named;
  for (const std::string& candidate : pythonCandidates(checkout)) {
    if (isExecutableFile(candidate)) return candidate;
  }
  throw StoreError::value(kNoPython);
}

std::vector<std::string> pipelineCommand(const Config& config, const std::string& checkout,
                                         const std::string& python, const std::string& folder,
                                         const std::string& audio) {
  std::vector<std::string> command;
  if (!variable(config, "ELEVENLABS_API_KEY")) {
    command = {"/bin/zsh", "-lic", "exec \"$@\"", "zsh"};
  }
  for (const std::string& word : {python, joinPath(checkout, kScript), folder,
                                  std::string("--import-audio"), audio, std::string("--no-open")}) {
    command.push_back(word);
  }
  return command;
}

}  // namespace velta
