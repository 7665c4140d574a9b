// The one door through which the project includes RapidJSON.
// RapidJSON is compiled into our own namespace so that it can never clash with another copy
// of it linked into the host process (same template names, different layouts or options).
// Include this header, never <rapidjson/...> directly, and spell the library `RJ::`.
#pragma once

#ifdef RAPIDJSON_NAMESPACE
#error "RapidJSON must be included through eil/json/RapidJson.h only"
#endif

#define RAPIDJSON_NAMESPACE KalvoRapidJson
#define RAPIDJSON_NAMESPACE_BEGIN namespace KalvoRapidJson {
#define RAPIDJSON_NAMESPACE_END }

#ifndef RAPIDJSON_HAS_STDSTRING
#define RAPIDJSON_HAS_STDSTRING 1
#endif

#include <rapidjson/document.h>
#include <rapidjson/encodedstream.h>
#include <rapidjson/encodings.h>
#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/pointer.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/rapidjson.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace KALVO::EIL {
// Short name for the project's private copy of RapidJSON.
namespace RJ = ::KalvoRapidJson;
}  // namespace KALVO::EIL
