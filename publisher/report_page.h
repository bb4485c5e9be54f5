#pragma once

// The page of a monitor: rings, versions and the nine lights of each.

#include <string>
#include <vector>

#include "publisher/ring_report.h"

namespace Vantrell::Publisher {

// One HTML document that needs no other file and runs no script. `madeAt` says when the facts were
// seen. Texts of servers cannot become elements of the page.
std::string ReportPage(const std::vector<RingReport>& reports, const std::string& madeAt);

// Replaces a file in one step. Any number of processes may do so at the same time. False with a
// reason in `error`; the file is then as it was.
[[nodiscard]] bool WritePage(const std::string& path, const std::string& page, std::string& error);

}  // namespace Vantrell::Publisher
