#include "support/FuzzHome.h"

#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <ios>
#include <iterator>
#include <system_error>
#include <utility>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "support/Require.h"

namespace velta::fuzz {
namespace {

namespace fs = std::filesystem;

// A key of the right form that was never given out.
constexpr std::string_view kKey = "velta_pat_0123456789abcdefghijABCDEFGHIJklmnopqrst_-x";

std::string makeFolder() {
  std::string pattern = fs::canonical(fs::temp_directory_path()) / "velta-fuzz-XXXXXX";
  require(::mkdtemp(pattern.data()) != nullptr, "a temporary folder can be made", pattern);
  return pattern;
}

std::int64_t nanoseconds(const struct stat& status) {
#ifdef __APPLE__
  const timespec& time = status.st_mtimespec;
#else
  const timespec& time = status.st_mtim;
#endif
  return static_cast<std::int64_t>(time.tv_sec) * 1000000000 + time.tv_nsec;
}

std::string withHome(std::string content, const std::string& home) {
  constexpr std::string_view kMark = "{home}";
  for (std::size_t at = 0; (at = content.find(kMark, at)) != std::string::npos; at += home.size())
    content.replace(at, kMark.size(), home);
  return content;
}

}  // namespace

FuzzHome::FuzzHome(const Files& files) : path_(makeFolder()) {
  ::setenv("TZ", "Asia/Taipei", 1);
  ::tzset();
  for (const auto& [name, content] : files) make(name, withHome(content, path_));
}

FuzzHome::~FuzzHome() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

void FuzzHome::make(const std::string& name, const std::string& content) {
  write(name, content);
  struct stat status = {};
  require(::stat(file(name).c_str(), &status) == 0, "a file of the home is there", name);
  made_.insert_or_assign(file(name),
                         Made{name, content, status.st_ino, status.st_size, nanoseconds(status)});
}

bool FuzzHome::Made::isStillAt(const std::string& path) const {
  struct stat status = {};
  return ::stat(path.c_str(), &status) == 0 && status.st_ino == inode && status.st_size == size &&
         nanoseconds(status) == modified;
}

void FuzzHome::write(std::string_view name, std::string_view bytes) const {
  const fs::path target = file(name);
  fs::create_directories(target.parent_path());
  std::ofstream stream(target, std::ios::binary | std::ios::trunc);
  stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  require(static_cast<bool>(stream.flush()), "a file of the home can be written", target.string());
}

std::string FuzzHome::read(std::string_view name) const {
  std::ifstream stream(file(name), std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

void FuzzHome::restore() {
  std::vector<fs::path> unknown;
  for (auto at = fs::recursive_directory_iterator(path_); at != fs::end(at); ++at) {
    const std::string& path = at->path().native();
    if (!at->is_directory()) {
      if (!made_.contains(path)) unknown.push_back(at->path());
      continue;
    }
    const auto first = made_.lower_bound(path + "/");
    if (first != made_.end() && first->first.starts_with(path + "/")) continue;
    unknown.push_back(at->path());
    at.disable_recursion_pending();
  }
  for (const fs::path& path : unknown) fs::remove_all(path);
  std::vector<Made> changed;
  for (const auto& [path, made] : made_) {
    if (!made.isStillAt(path)) changed.push_back(made);
  }
  for (const Made& made : changed) make(made.name, made.content);
}

Config FuzzHome::config() const {
  return Config::fromEnvironment({{"HOME", path_},
                                  {"MEETING_NOTES_HOME", path_},
                                  {"VELTA_TOKEN", std::string(kKey)},
                                  {"VELTA_API_BASE", "http://127.0.0.1:9"},
                                  {"VELTA_ADMIN_AGENT_TOKEN", "made-up-admin-token"},
                                  {"VELTA_REPO", file("checkout")},
                                  {"VELTA_PIPELINE_PYTHON", file("no-such-python")},
                                  {"ELEVENLABS_API_KEY", "made-up"}});
}

Files usualFiles() {
  return {
      {"mcp-config.json",
       R"({"sources": [
  {"type": "recordings", "glob": "~/recordings/*/notes.json", "visibility": "private"},
  {"type": "imported", "glob": "~/imported/*/app-notes/notes.json", "visibility": "work"},
  {"type": "legacy", "path": "~/legacy", "visibility": "shared", "name": "old notes"}],
 "clients": {"claude-code": ["private", "work", "shared"], "dashboard": ["shared"]},
 "default_client_visibilities": ["shared"],
 "visibility_overrides": {"rec-2026-09-28-standup": "shared"},
 "tag_overrides": {"rec-2026-09-28-standup": ["agents"]}})"},
      {"agents.json",
       R"({"agents": {
  "claude-code": {"tools": {"search_meetings": true, "read_notes": true, "read_transcripts": true,
    "process_recordings": true, "add_terms": true}, "scope": "all", "hide_private": false},
  "reader": {"tools": {"search_meetings": true, "read_notes": true}},
  "tagged": {"tools": {"search_meetings": true, "read_notes": true, "read_transcripts": true,
    "process_recordings": true, "add_terms": true}, "scope": "tagged"}}})"},
      {"dictionary.json",
       R"({"self_name": "Arlo", "terms": [{"wrong": "蝶沙", "right": "碟煞", "tier": "auto"}],
 "speakers": [{"name": "林小姐", "aliases": ["Lin"]}], "mine": [1, 2.5]})"},
      {"recordings/2026-10-12-電輔車/notes.json",
       R"({"title": "電輔車租賃", "started_at": "2026-10-12T15:30:00+08:00", "duration_sec": 1830,
 "verdict": "先付押金，下週簽約。", "speakers": [{"name": "Arlo", "talk_sec": 900},
  {"name": "林小姐", "role": "車行", "talk_sec": 600.5}],
 "decisions": [{"text": "押金改為三千元", "owner": "Arlo", "t": 95}],
 "open_questions": [{"question": "保險由誰負擔？", "t": 1210}],
 "viewpoints": [{"speaker": "林小姐", "points": [{"text": "押金不能免", "t": 65}]}],
 "lines": [
  {"id": "L1", "t_start": 3.2, "t_end": 6.0, "speaker": "林小姐", "text": "電輔車的押金是五千元。"},
  {"id": "L2", "t_start": 65, "t_end": 70, "speaker": "Arlo", "text": "Can we lower the deposit?"},
  {"id": "L3", "t_start": 1205.5, "speaker": "Arlo", "text": "那保險呢？"}]})"},
      {"recordings/2026-10-12-電輔車/session.json",
       R"({"title": "電輔車租賃洽談", "visibility": "work", "tags": ["agents"]})"},
      {"recordings/2026-09-28-standup/notes.json",
       R"({"title": "Stand-up", "speakers": [{"name": "Joan"}], "tags": ["private"],
 "summary": "p99 is 4.87 s", "lines": [{"speaker": "Joan", "text": "我們先看 p99"}]})"},
      {"imported/2026-09-01-permit/app-notes/notes.json",
       R"({"title": "City hall", "lines": [{"t_start": 9, "text": "许可证下周到"}, {"t_start": 4}]})"},
      {"legacy/records/2026-08-05-budget/meeting.json",
       R"({"id": "2026-08-05-budget", "title": "Budget review", "date": "2026-08-05",
 "verdict": "The budget holds.", "people": [{"name": "Arlo"}, {"name": "Joan"}],
 "digestFile": "digest.md", "decisions": ["Keep the deposit fund"]})"},
      {"legacy/records/2026-08-05-budget/transcript.md",
       "@Joan  00:05\nWe keep the deposit fund.\n\n@Arlo  1:02:05\r\n同意，押金不動。\n"},
      {"legacy/records/2026-08-05-budget/digest.md",
       "# Budget\n\n## 決議\n- 押金基金保留 (00:05)\n- Hire one mechanic\n"},
      {"jobs/job-20261012-153000-ab12cd.json",
       R"({"id": "job-20261012-153000-ab12cd", "pid": 0, "visibility": "private",
 "created_at": "2026-10-12T15:30:00+0800", "meeting_id": "rec-2026-10-12-電輔車"})"},
      {"jobs/job-done.json",
       R"({"id": "job-done", "folder": "{home}/recordings/2026-09-28-standup", "pid": 0,
 "visibility": "work", "meeting_id": "rec-2026-09-28-standup"})"},
      {"recordings/2026-09-28-standup/status.json",
       R"({"step": "done", "at": "2026-09-28T10:00:00+0800", "detail": "完成"})"},
      {"jobs/job-failed.json", R"({"folder": "{home}/jobs/failed", "visibility": "private"})"},
      {"jobs/failed/status.json",
       R"({"step": "transcribe", "ok": false, "detail": {"code": 1e400}})"},
      {"jobs/failed/job.log", "上傳音檔\nTraceback:\n  no such file\n"},
      {"talk.m4a", "not really sound"},
      {"checkout/pipeline/process_meeting.py", ""},
  };
}

Instant fixedNow() { return instantFromSeconds(1792800000); }  // 2026-10-24T00:00:00Z

}  // namespace velta::fuzz
