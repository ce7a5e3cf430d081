// Sessions as they go over the wire: every file of tests/session/transcripts is played against the
// real program, and what comes out must be what the file says, byte for byte.
//
// A transcript's lines begin with
//   #   a remark
//   $   the arguments of the program, which starts here (blanks separate them)
//   @   NAME CONTENT: writes that file of the data home
//   >   a line to the server
//   <   a line from the server
//   !   a line that the server wrote to standard error, at the end
// {home} stands for the data home and {now} for a time stamp of the run, local or UTC. The data
// home is a copy of tests/session/home, the time zone Asia/Taipei.
//
// With VELTA_UPDATE_TRANSCRIPTS set in the environment the files are written anew from what the
// server says; read the difference before it is committed.

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ios>
#include <memory>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "support/DataHome.h"
#include "support/ServerProcess.h"

namespace velta {
namespace {

namespace fs = std::filesystem;
using test::DataHome;
using test::ServerProcess;

const std::string kSessionFolder = VELTA_SOURCE_DIR "/tests/session";

// Asked after every line: whatever comes before its answer belongs to the line.
constexpr std::string_view kMarkRequest =
    R"({"jsonrpc":"2.0","id":"transcript mark","method":"ping"})";
constexpr std::string_view kMarkAnswer = R"({"jsonrpc":"2.0","id":"transcript mark","result":{}})";

std::string replaced(std::string text, std::string_view from, std::string_view to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

std::vector<std::string> words(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> found;
  for (std::string word; stream >> word;) found.push_back(word);
  return found;
}

std::string textOf(const fs::path& file) {
  std::ostringstream content;
  content << std::ifstream(file, std::ios::binary).rdbuf();
  return content.str();
}

// One performance of a transcript: takes its directives and puts down what really happened.
class Performance {
 public:
  Performance() : home_(kSessionFolder + "/home") {
    home_.write("mcp-config.json", toWire(home_.read("mcp-config.json")));
  }

  void take(const std::string& line) {
    const std::string rest = line.size() > 2 ? toWire(line.substr(2)) : "";
    if (line.starts_with("<") || line.starts_with("!")) return;  // put down from the real ones
    seen_ += line + "\n";
    if (line.starts_with("$")) start(rest);
    if (line.starts_with("@")) writeFile(rest);
    if (line.starts_with(">")) send(rest);
  }

  // Ends the program; what the transcript should have said.
  std::string end() {
    if (!server_) throw std::runtime_error("a transcript starts the program");
    const ServerProcess::Ending ending = server_->finish();
    EXPECT_EQ(ending.status, 0);
    EXPECT_EQ(ending.output, "");
    std::istringstream errors(ending.errors);
    for (std::string line; std::getline(errors, line);) seen_ += "! " + fromWire(line) + "\n";
    return seen_;
  }

 private:
  void start(const std::string& arguments) {
    server_ = std::make_unique<ServerProcess>(
        ServerProcess::Options{.arguments = words(arguments), .environment = home_.environment()});
    // Its start is over when it answers: what the transcript does next comes after that.
    EXPECT_EQ(server_->ask(kMarkRequest), kMarkAnswer);
  }

  void writeFile(const std::string& nameAndContent) {
    const std::size_t blank = nameAndContent.find(' ');
    home_.write(nameAndContent.substr(0, blank), nameAndContent.substr(blank + 1));
  }

  void send(const std::string& line) {
    ASSERT_TRUE(server_) << "a transcript starts the program before it talks to it";
    server_->write(line + "\n" + std::string(kMarkRequest) + "\n");
    for (auto answer = server_->readLine(); answer != kMarkAnswer; answer = server_->readLine()) {
      ASSERT_TRUE(answer) << "the server ended";
      seen_ += "< " + fromWire(*answer) + "\n";
    }
  }

  std::string toWire(const std::string& text) const {
    return replaced(text, "{home}", home_.path());
  }

  std::string fromWire(const std::string& text) const {
    // Stamps of the run are told from those of the fixture by the form of their offset.
    static const std::regex now(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\+(0800|00:00))");
    return std::regex_replace(replaced(text, home_.path(), "{home}"), now, "{now}");
  }

  DataHome home_;
  std::unique_ptr<ServerProcess> server_;
  std::string seen_;
};

class Transcript : public testing::TestWithParam<std::string> {};

TEST_P(Transcript, GoesAsWritten) {
  const fs::path file = fs::path(kSessionFolder) / "transcripts" / (GetParam() + ".txt");
  const std::string written = textOf(file);
  Performance run;
  std::istringstream stream(written);
  for (std::string line; std::getline(stream, line);) run.take(line);
  const std::string seen = run.end();
  if (std::getenv("VELTA_UPDATE_TRANSCRIPTS")) {
    std::ofstream(file, std::ios::binary) << seen;
  } else {
    EXPECT_EQ(seen, written);
  }
}

std::vector<std::string> transcriptNames() {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(kSessionFolder + "/transcripts"))
    names.push_back(entry.path().stem().string());
  return names;
}

INSTANTIATE_TEST_SUITE_P(Session, Transcript, testing::ValuesIn(transcriptNames()),
                         [](const auto& parameter) { return parameter.param; });

}  // namespace
}  // namespace velta
