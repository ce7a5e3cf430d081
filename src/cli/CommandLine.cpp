#include "cli/CommandLine.h"

#include <cstddef>
#include <iterator>
#include <string_view>
#include <utility>

#include "cloud/CloudCommand.h"
#include "cloud/URLSessionFetcher.h"
#include "config/BuildConstants.h"
#include "platform/HiddenPrompt.h"
#include "platform/Memory.h"
#include "platform/Process.h"
#include "platform/Stdio.h"
#include "platform/Text.h"
#include "server/Server.h"
#include "server/Version.h"

namespace velta {
namespace {

constexpr int kStandardInput = 0;
constexpr int kStandardOutput = 1;
constexpr int kStandardError = 2;

constexpr int kDone = 0;
constexpr int kRefused = 2;

constexpr std::string_view kKeyPrompt =
    "Paste the connection key from 連接 AI (input stays hidden): ";
constexpr std::size_t kKeyCapacity = 256;  // bytes that the prompt takes, its end included

constexpr std::size_t kKeptMemory = std::size_t{8} << 20U;  // a large answer takes four

constexpr std::string_view kClientPrefix = "--client=";

std::string versionLine() { return "velta-mcp " + std::string(kVersion); }

std::string usage() {
  std::string text = versionLine();
  text +=
      ": Velta's meeting notes as MCP tools over stdio\n"
      "\n"
      "  velta-mcp [--client NAME] [--admin-stats] [--no-reindex]   serve (an AI client launches "
      "this)\n"
      "  velta-mcp connect | status | disconnect                     connection key for web "
      "meetings\n"
      "  velta-mcp --version\n"
      "\n"
      "Register in Claude Code:   claude mcp add -s user velta -- "
      "/Applications/Velta.app/Contents/MacOS/velta-mcp --client claude-code\n"
      "Data home: ~/Library/Application Support/MeetingNotes (MEETING_NOTES_HOME overrides). "
      "Details: mcp/README.md, section ";
  text += kReadmeSection;
  return text;
}

std::string unknownArguments(const std::vector<std::string>& unknown) {
  std::string text = "velta-mcp: unknown argument";
  for (const std::string& argument : unknown) text.append(" ").append(visibleOnOneLine(argument));
  return text + ". Next step: see velta-mcp --help";
}

std::string httpRefusal() {
  std::string text = "velta-mcp: --http (Streamable HTTP for Dify) is not part of the ";
  text += kServerWord;
  return text + " server; use stdio, or the Python server in mcp/ for HTTP. Next step: drop --http";
}

// Says `text` with one write and returns the exit status.
int say(int descriptor, std::string text, int status) {
  text += '\n';
  writeAll(descriptor, text);  // nobody is left to tell when it fails
  return status;
}

bool isAction(std::string_view argument) {
  return argument == "connect" || argument == "status" || argument == "disconnect";
}

// Takes up an argument that stands for itself; anything else is unknown.
void parseAlone(const std::string& argument, CLI::Options& options) {
  if (argument.starts_with(kClientPrefix)) {
    options.client = argument.substr(kClientPrefix.size());
  } else if (argument == "--admin-stats") {
    options.adminStats = true;
  } else if (argument == "--no-reindex") {
    options.reindex = false;
  } else if (argument == "--http") {
    options.http = true;
  } else if (argument == "--version" || argument == "-V") {
    options.version = true;
  } else if (argument == "--help" || argument == "-h") {
    options.help = true;
  } else if (isAction(argument)) {
    options.action = argument;
  } else {
    options.unknown.push_back(argument);
  }
}

// The key that the user types or, without a terminal, that standard input holds.
std::optional<std::string> askForKey() {
  auto key = readHiddenLine(std::string(kKeyPrompt), kKeyCapacity);
  if (key) return key;
  LineReader lines(kStandardInput);
  std::string_view line;
  return lines.next(line) ? std::optional<std::string>(line) : std::nullopt;
}

int runAction(const std::string& action, const Config& config) {
  URLSessionFetcher fetcher(config.env);
  return cloudCommand(action, askForKey, Cloud(config, fetcher),
                      [](const std::string& line) { say(kStandardOutput, line, kDone); });
}

int serve(CLI::Options options, Config config, std::string executable) {
  keepFreedMemory(kKeptMemory);
  PatientWriter diagnostics(kStandardError);
  URLSessionFetcher fetcher(config.env);
  Server server(
      {.config = std::move(config),
       .client = std::move(options.client),
       .adminStats = options.adminStats,
       .executable = std::move(executable),
       .diagnose = [&](std::string_view line) { diagnostics.write(line); },
       .fetcher = &fetcher,
       .terminal = isTerminal(kStandardError) ? std::optional(kStandardError) : std::nullopt});
  server.start(options.reindex);
  server.run(kStandardInput, kStandardOutput);
  return kDone;
}

}  // namespace

CLI::Options CLI::parse(const std::vector<std::string>& arguments) {
  Options options;
  for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
    // Of an HTTP server's arguments these two are swallowed with their values, on purpose: a client
    // that passes them by habit is served all the same.
    const bool swallowed = *argument == "--port" || *argument == "--allow-host";
    if (!swallowed && *argument != "--client") {
      parseAlone(*argument, options);
      continue;
    }
    const auto value = std::next(argument);
    const bool hasValue = value != arguments.end();
    if (!swallowed) options.client = hasValue ? std::optional(*value) : std::nullopt;
    if (hasValue) argument = value;
  }
  return options;
}

int runCommandLine(const std::string& program, const std::vector<std::string>& arguments,
                   Environment environment) {
  ignoreWriteSignals();
  CLI::Options options = CLI::parse(arguments);
  if (options.help) return say(kStandardOutput, usage(), kDone);
  if (options.version) return say(kStandardOutput, versionLine(), kDone);
  if (!options.unknown.empty())
    return say(kStandardError, unknownArguments(options.unknown), kRefused);
  if (options.http && !options.action) return say(kStandardError, httpRefusal(), kRefused);
  Config config = Config::fromEnvironment(std::move(environment));
  if (options.action) return runAction(*options.action, config);
  return serve(std::move(options), std::move(config), executablePath(program));
}

}  // namespace velta
