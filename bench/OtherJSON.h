// OtherJSON: the JSON libraries that ours is compared with, as far as they are installed.
#pragma once

#if __has_include(<rapidjson/document.h>)
#define VELTA_HAS_RAPIDJSON
#if defined(__SSE2__)
#define RAPIDJSON_SSE2
#elif defined(__ARM_NEON)
#define RAPIDJSON_NEON
#endif
#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#endif

#ifdef VELTA_HAS_SIMDJSON
#include <simdjson.h>
#endif

#ifdef VELTA_HAS_NLOHMANN
#include <nlohmann/json.hpp>
#endif
