// Runs one function of the service once, for one amount of work, and prints the size of the text
// that it reads, the processor time in microseconds and the memory at its peak; sizes are in bytes.
//
//   growth manifest FILES    reading of a manifest of so many files
//   growth text BYTES        reading of a manifest of one file and an unknown text
//   growth members COUNT     reading of a manifest of one file and an unknown object
//   growth digest FILES      the digest of a manifest
//   growth record FILES      whether the record of the installed release lists each file; it does
//   growth scan PROCESSES    the scan for clients among so many new processes, and in a second line
//                            the next scan; run it with unshare --pid --fork --mount-proc
//
// The process is a new one for each measurement, and its heap has no free memory, as in the
// service, which gives that back to the kernel after each pass. The text is not part of the memory.

#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "bench/idle_processes.h"
#include "bench/manifest_text.h"
#include "bench/own_memory.h"
#include "bench/stopwatch.h"
#include "identity/kiosk_supervisor.h"
#include "trust/release_block.h"
#include "update/installed_record.h"
#include "update/manifest.h"

namespace Vantrell {
namespace {

constexpr char Component[] = "client-linux-amd64";

void Require(bool succeeded, const char* what) {
  if (succeeded) return;
  fprintf(stderr, "growth: %s\n", what);
  exit(1);
}

// The peak of the memory is the present memory from now on.
void ForgetPeak() {
  FILE* const file = fopen("/proc/self/clear_refs", "we");
  Require(file != nullptr && fputs("5", file) >= 0 && fclose(file) == 0, "cannot forget the peak");
}

template <typename Action>
void Measure(std::string_view text, const Action& action) {
  malloc_trim(0);
  ForgetPeak();
  const double memory = ReadOwnMemory("VmRSS");
  const double spent = ProcessorMicroseconds(action);
  printf("%zu %.1f %.0f\n", text.size(), spent, ReadOwnMemory("VmHWM") - memory);
}

// --- manifests ---

// A number from 0 to count - 1 for each index, in an order that looks random.
int64_t Scatter(int64_t index, int64_t count) {
  constexpr int64_t Prime =
      2'147'483'647;  // greater than any count, and so without a common factor
  return index * Prime % count;
}

std::string ManifestText(int64_t files, const std::string& unknown) {
  std::string text = R"({"version":"2.4.0")" + unknown + R"(,"files":[)";
  text.reserve(text.size() + static_cast<size_t>(files) * MostBytesOfEntry);
  for (int64_t index = 0; index < files; ++index) {
    text += (index == 0 ? "" : ",") + ManifestEntry(Scatter(index, files));
  }
  return text + "]}";
}

UpdateManifest ReadManifest(const std::string& text) {
  UpdateManifest manifest;
  std::string error;
  Require(ParseManifest(text, manifest, error), error.c_str());
  return manifest;
}

void MeasureReading(const std::string& text) {
  Measure(text, [&text] { (void)ReadManifest(text); });
}

void MeasureManifest(int64_t files) { MeasureReading(ManifestText(files, "")); }

void MeasureText(int64_t bytes) {
  MeasureReading(
      ManifestText(1, R"(,"notes":")" + std::string(static_cast<size_t>(bytes), 'x') + '"'));
}

void MeasureMembers(int64_t count) {
  std::string notes = R"(,"notes":{)";
  for (int64_t index = 0; index < count; ++index) {
    char member[64];
    snprintf(member, sizeof member, "%s\"%08lld\":0", index == 0 ? "" : ",",
             static_cast<long long>(Scatter(index, count)));
    notes += member;
  }
  MeasureReading(ManifestText(1, notes + '}'));
}

void MeasureDigest(int64_t files) {
  const UpdateManifest manifest = ReadManifest(ManifestText(files, ""));
  Measure("", [&manifest] { Require(!ManifestDigest(manifest, Component).empty(), "no digest"); });
}

void MeasureRecord(int64_t files) {
  const UpdateManifest manifest = ReadManifest(ManifestText(files, ""));
  std::string record;
  for (const ManifestFile& file : manifest.files) record += InstalledRecordLine(file);
  Measure(record, [&] { Require(ListsEveryFile(record, manifest), "a file is not found"); });
}

// --- processes ---

void Scan() { Require(FindClientPids(-1).empty(), "a client runs here, or there is no /proc"); }

void MeasureScan(int64_t processes) {
  StartIdleProcesses(static_cast<int>(processes));
  Measure("", Scan);
  Measure("", Scan);
}

struct Operation {
  std::string_view name;
  void (*measure)(int64_t amount);
};

constexpr Operation Operations[] = {
    {"manifest", MeasureManifest}, {"text", MeasureText},     {"members", MeasureMembers},
    {"digest", MeasureDigest},     {"record", MeasureRecord}, {"scan", MeasureScan},
};

}  // namespace
}  // namespace Vantrell

int main(int argc, char** argv) {
  using namespace Vantrell;  // NOLINT(google-build-using-namespace): only main is outside of it
  if (argc != 3) return 2;
  const auto* const found =
      std::find_if(std::begin(Operations), std::end(Operations),
                   [argv](const Operation& operation) { return operation.name == argv[1]; });
  const int64_t amount = atoll(argv[2]);
  if (found == std::end(Operations) || amount <= 0) return 2;
  found->measure(amount);
  return 0;
}
