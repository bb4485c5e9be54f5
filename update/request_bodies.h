#pragma once

// The bodies of the requests to the update server: one JSON object on one line, keys in a fixed
// order, no white space. Pure functions of their arguments; any thread may call them.

#include <cstdint>
#include <string>

namespace Vantrell {

constexpr char CheckPath[] = "/api/v1/check";  // where a check request is posted
constexpr int32_t CheckLimitMs = 20000;        // for the whole transfer of its answer

// The text as a JSON string, with its quotes.
std::string JsonQuoted(const std::string& text);

// The check request without its install id.
std::string BuildCheckRequest(const std::string& ring, const std::string& component,
                              const std::string& currentVersion,
                              const std::string& driverFingerprint, const std::string& osBuild);

// Adds the install id as the last key of a complete request. The id is not escaped.
std::string AddInstallId(std::string request, const std::string& installId);

// A report on an update. The service does not send it, and the update server has no path for it.
std::string BuildReportRequest(const std::string& fromVersion, const std::string& toVersion,
                               const std::string& result, const std::string& detail);

}  // namespace Vantrell
