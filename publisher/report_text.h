#pragma once

// What verify-release prints: a report for people, and one line for a monitor. Texts of servers
// cannot harm the terminal.

#include <string>
#include <vector>

#include "publisher/ring_report.h"

namespace Vantrell::Publisher {

// The hosts and the fingerprints of the keys that this build asks and trusts.
std::string BuildText();

// Each of the nine files on a line of its own, and what a machine says.
std::string RingText(const RingReport& report);

// The status that is the worst of all rings.
int OverallStatus(const std::vector<RingReport>& reports);

// "OK", "WARNING", "CRITICAL" or "UNKNOWN".
const char* StatusName(int status);

// One line, without a line feed, in the form of a monitoring plugin's: no "|", after which a
// monitor expects numbers.
std::string ProbeLine(int status, const std::vector<RingReport>& reports);

}  // namespace Vantrell::Publisher
