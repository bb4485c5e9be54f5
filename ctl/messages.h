#pragma once

// What this program prints on standard error.

#include <string>

namespace Vantrell::Control {

constexpr char ProgramName[] = "vantrell-harbor-updatectl";

// Prints the name of this program and a sentence, in printable form, and returns `status`.
int Fail(int status, const std::string& sentence);

// Prints what is wrong with the arguments, and returns the status for it.
int FailUsage(const std::string& sentence);

// Whether root runs this program. Prints a sentence if not.
[[nodiscard]] bool RequireRoot();

}  // namespace Vantrell::Control
