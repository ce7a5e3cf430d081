// Jobs: turning an audio file into a meeting by way of the external pipeline, and telling how that
// goes. The pipeline runs as a process of its own that outlives the call and the server; all that
// is known of a job lies in files, so any server over the same data home can answer for it.
//
// Files (below the data home): recordings/DATE-SLUG[-N]/ with session.json (written here), job.log
// (what the pipeline prints) and status.json (the pipeline's progress, only read here), and
// jobs/JOB.json, the record of the job. Nothing here ever deletes any of them. Temporary files of a
// write stand in recordings/ and in jobs/ themselves, never in one of the many folders below.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "config/Config.h"
#include "json/JSON.h"
#include "platform/Time.h"

namespace velta {

// The note for a client that may not see private meetings: what comes of a recording is one.
inline constexpr std::string_view kStatusOnly =
    "This meeting is private; this client sees job status only, never its content";

struct Jobs {
  struct ProcessArguments {
    std::string path;                          // of the audio file
    std::optional<std::string> title = {};     // of the meeting; absent or empty: the file's name
    std::optional<std::string> language = {};  // only Chinese, the pipeline's own default
  };

  // What a job needs of the index.
  struct IndexAccess {
    std::function<std::size_t()> refresh;                // returns the number of meetings
    std::function<bool(const std::string&)> hasMeeting;  // by meeting id
  };

  // Starts a program: argument vector, working directory, log file. Returns its process id; throws
  // StoreError::value with the program's path and the system's cause.
  using Spawn =
      std::function<pid_t(const std::vector<std::string>&, const std::string&, const std::string&)>;
  using Alive = std::function<bool(pid_t)>;

  // `config` must outlive this. `executable` is the path of the running program, near which the
  // pipeline is looked for.
  Jobs(const Config& configuration, std::string executable);

  // Starts the pipeline for an audio file. Returns the tool's result at once; throws
  // StoreError::value, or std::system_error for a folder or file that cannot be made. What was made
  // before a failure stays, and a pipeline that was started runs on.
  JSONObject processRecording(const ProcessArguments& arguments,
                              const std::optional<std::string>& client, Instant now) const;

  // The state of a job, with its content only when `allowed` holds the job's visibility. Throws
  // StoreError::value for an id that is none or unknown.
  JSONObject getJob(const std::string& id, const std::vector<std::string>& allowed,
                    const IndexAccess& index) const;

  // Removes the temporary files that killed servers left, in two passes: one over recordings/, one
  // over jobs/.
  void removeStaleTemporaries() const;

  const Config& config;
  std::string executable;
  Spawn spawn;
  Alive alive;
};

}  // namespace velta
