#include "publisher/ring_report.h"

#include <sys/statvfs.h>

#include <iterator>
#include <map>

#include "apply/release_package.h"
#include "base/deployment.h"
#include "publisher/shown_text.h"
#include "trust/release_keys.h"
#include "trust/witness_quorum.h"
#include "update/host_inventory.h"
#include "update/https_transport.h"
#include "update/manifest.h"
#include "update/request_bodies.h"
#include "update/staging.h"

namespace Vantrell::Publisher {
namespace {

// In the log of the update server this tells the requests from those of machines.
constexpr char InstallIdOfRequests[] = "verify-release";
constexpr size_t WitnessFileLimit = 1048576;  // bytes; the service itself has no limit
constexpr size_t VersionBytes = 70;           // of a version in a sentence

// A libcurl write function that ends the transfer after the limit.
size_t AppendUpToLimit(char* data, size_t size, size_t count, void* text) {
  const size_t taken = AppendToString(data, size, count, text);
  return static_cast<std::string*>(text)->size() > WitnessFileLimit ? 0 : taken;
}

bool FetchWitnessFile(const std::string& url, std::string& body, std::string& error) {
  if (HttpsGet(url, AppendUpToLimit, &body, SmallFileLimitMs, error)) return true;
  if (body.size() > WitnessFileLimit) error = "larger than 1 MiB";
  body.clear();
  return false;
}

// Asks as a machine does. On false the report says why nothing is offered.
bool AskForOffer(const RingQuestion& question, std::string& offer, RingReport& report) {
  const std::string request =
      AddInstallId(BuildCheckRequest(question.ring, ReleaseComponent, question.installedVersion, "",
                                     OsBuildString()),
                   InstallIdOfRequests);
  HttpResult answer = HttpsPostJson(DefaultUpdateHost, CheckPath, request, "", CheckLimitMs);
  offer = std::move(answer.body);
  if (answer.ok && answer.status == 200) return true;
  if (answer.ok && answer.status == 204) {
    report.status = question.installedVersion.empty() ? StatusWarning : StatusOk;
    report.outcome = "nothing is offered";
    return false;
  }
  report.refusal =
      answer.ok ? "update service returned HTTP " + std::to_string(answer.status) : answer.error;
  report.outcome = std::string("no offer from ") + DefaultUpdateHost + ": " + report.refusal;
  return false;
}

// The verdict of the service's code about the files that were fetched.
bool IsProved(const RingQuestion& question, const std::vector<std::string>& baseUrls,
              RingReport& report) {
  std::map<std::string, const WitnessFile*> files;
  for (const Witness& witness : report.witnesses) {
    for (const WitnessFile& file : witness.files) files[file.url] = &file;
  }
  const auto fetch = [&files](const std::string& url, std::string& body, std::string& error) {
    const auto found = files.find(url);
    if (found == files.end()) return false;
    body = found->second->body;
    error = found->second->fault;  // of a file that was not fetched: the reason
    return found->second->isFetched;
  };
  std::string error;
  if (VerifyReleaseQuorum(report.manifest, ReleaseComponent, question.ring, baseUrls, fetch,
                          ReleaseKeys(), error)) {
    return true;
  }
  report.refusal = "refused: " + error;
  return false;
}

// The sizes are signed, so a server cannot name others.
bool HasRoom(const std::string& folder, const UpdateManifest& manifest) {
  struct statvfs room = {};
  if (statvfs(folder.c_str(), &room) != 0) return false;
  double needed = 0;  // bytes; their sum may be beyond 64 bits
  for (const ManifestFile& file : manifest.files) needed += static_cast<double>(file.size);
  return needed <= static_cast<double>(room.f_bavail) * static_cast<double>(room.f_frsize);
}

// Fetches the files as a machine does, with a proof of its own, and compares the package's fields.
bool CanBeInstalled(const RingQuestion& question, RingReport& report) {
  const std::string stagingDir = question.folder + "/" + question.ring;
  std::string package;
  std::string error;
  if (!FindPackage(stagingDir, report.manifest, package, report.refusal)) return false;
  if (question.folder.empty()) return true;
  if (StageRelease(report.manifest, ReleaseComponent, question.ring, stagingDir, error)) {
    return CheckPackageFields(package, report.manifest.version, report.refusal);
  }
  report.refusal = "refused: " + error;
  return false;
}

// The first fault in a few words, and how many there are.
std::string FirstFault(const RingReport& report) {
  const std::string digest = OtherDigestOfAll(report.manifest, ReleaseComponent, report.witnesses);
  if (!digest.empty()) return "the offer is not the release that was signed, " + digest;
  std::string first;
  size_t faults = 0;
  for (size_t number = 0; number < report.witnesses.size(); ++number) {
    for (size_t index = 0; index < FileNames.size(); ++index) {
      const WitnessFile& file = report.witnesses[number].files[index];
      if (file.fault.empty() || ++faults > 1) continue;
      first = "witness " + std::to_string(number + 1) + " " + FileNames[index] + ": " + file.fault;
    }
  }
  if (faults == 0) return report.refusal;
  return faults == 1 ? first : first + " (and " + std::to_string(faults - 1) + " more)";
}

}  // namespace

RingReport ExamineRing(const RingQuestion& question) {
  RingReport report;
  report.ring = question.ring;
  std::string offer = question.offer;
  if (offer.empty() && !AskForOffer(question, offer, report)) return report;
  std::string error;
  if (!ParseManifest(offer, report.manifest, error)) {
    report.manifest = {};
    report.refusal = "unreadable manifest: " + error;
    report.outcome = report.refusal;
    return report;
  }
  const std::vector<std::string> baseUrls(std::begin(WitnessBaseUrls), std::end(WitnessBaseUrls));
  report.witnesses = FetchWitnessFiles(report.manifest, ReleaseComponent, question.ring, baseUrls,
                                       FetchWitnessFile);
  JudgeWitnessFiles(report.manifest, ReleaseComponent, ReleaseKeys(), report.witnesses);
  const std::string version = Shown(report.manifest.version, VersionBytes);
  const bool isProved = IsProved(question, baseUrls, report);
  if (isProved && !question.folder.empty() && !HasRoom(question.folder, report.manifest)) {
    report.status = StatusUnknown;
    report.outcome = version + " is proved, but its files need more room";
  } else if (isProved && CanBeInstalled(question, report)) {
    report.status = StatusOk;
    report.outcome = version + " is proved";
    if (!question.folder.empty()) report.outcome += " and its files are right";
  } else {
    report.outcome = version + ": " + FirstFault(report);
  }
  return report;
}

}  // namespace Vantrell::Publisher
