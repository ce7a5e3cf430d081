// Pipeline: where the transcription pipeline and an interpreter for it are found.
#pragma once

#include <string>
#include <vector>

#include "config/Config.h"

namespace velta {

// The source checkout that holds the pipeline: VELTA_REPO when set, else the folder of the
// executable or one of the five above it. Throws StoreError::value when there is none.
std::string findPipelineCheckout(const Config& config, const std::string& executable);

// The Python interpreter for it: VELTA_PIPELINE_PYTHON untested, else the first candidate that is
// an executable file. Throws StoreError::value when there is none.
std::string findPipelinePython(const Config& config, const std::string& checkout);

// The argument vector that processes `audio` into `folder`. Without ELEVENLABS_API_KEY in the
// environment it goes through a login shell, whose profile is expected to export the key.
std::vector<std::string> pipelineCommand(const Config& config, const std::string& checkout,
                                         const std::string& python, const std::string& folder,
                                         const std::string& audio);

}  // namespace velta
