#include "trust/witness_quorum.h"

#include <iterator>
#include <utility>

#include "base/deployment.h"
#include "base/failure.h"
#include "base/log_line.h"
#include "trust/digest.h"
#include "trust/release_block.h"
#include "trust/signature.h"
#include "update/https_transport.h"
#include "update/update.h"

namespace Vantrell {
namespace {

constexpr int WitnessCount = 3;  // all of them must answer and agree

// The two files that every witness must serve with the same bytes.
struct SignedRelease {
  std::string block;
  std::string signature;

  bool operator==(const SignedRelease&) const = default;
};

// The witnesses did not agree or could not be reached.
bool RefuseQuorum(std::string reason, std::string& error) {
  error = std::move(reason);
  LogLine("[Update] quorum REFUSED - %s", error.c_str());
  return false;
}

// They agreed, but on a release that is not acceptable.
bool RefuseRelease(std::string reason, std::string& error) {
  error = std::move(reason);
  LogLine("[Update] REFUSED - %s", error.c_str());
  return false;
}

bool AgreesOnDigest(const std::string& url, const WitnessFetch& fetch,
                    const std::string& manifestDigest) {
  std::string digestText;
  std::string fetchError;
  // A digest file that cannot be fetched is reported as a disagreement, without the transport's
  // words.
  if (!fetch(url, digestText, fetchError)) return false;
  return NormalizeDigest(digestText) == manifestDigest;
}

// The offer that all three witnesses are asked about.
struct Offer {
  const UpdateManifest& manifest;
  const std::string& component;
  const std::string& channel;
  const std::string& manifestDigest;
};

// Asks one witness; `number` counts from 1. The files of witness 1 become the `reference` that the
// others must match.
bool AskWitness(size_t number, const std::string& baseUrl, const Offer& offer,
                const WitnessFetch& fetch, SignedRelease& reference, std::string& error) {
  const std::string witness = "witness " + std::to_string(number);
  const auto [blockUrl, signatureUrl, digestUrl] =
      WitnessFileUrls(baseUrl, offer.channel, offer.manifest.version, offer.component);
  SignedRelease served;
  std::string fetchError;
  if (!fetch(blockUrl, served.block, fetchError) ||
      !fetch(signatureUrl, served.signature, fetchError)) {
    return RefuseQuorum(witness + " unreachable: " + fetchError, error);
  }
  if (number == 1) reference = served;
  if (served != reference) {
    return RefuseQuorum(witness + " serves a different signed release", error);
  }
  if (!AgreesOnDigest(digestUrl, fetch, offer.manifestDigest)) {
    const std::string which = offer.manifest.version + "/" + offer.component;
    return RefuseQuorum(witness + " disagrees for " + which, error);
  }
  return true;
}

}  // namespace

std::array<std::string, 3> WitnessFileUrls(const std::string& baseUrl, const std::string& channel,
                                           const std::string& version,
                                           const std::string& component) {
  const std::string start = baseUrl + "/" + channel + "/" + version + ".";
  return {start + "release.block", start + "release.sig", start + component + ".sha256"};
}

bool VerifyReleaseQuorum(const UpdateManifest& manifest, const std::string& component,
                         const std::string& channel, const std::vector<std::string>& witnesses,
                         const WitnessFetch& fetch, const std::vector<ReleaseKey>& keys,
                         std::string& error) {
  const std::string manifestDigest = ManifestDigest(manifest, component);
  if (manifestDigest.size() != DigestLength) {
    return FailWith("could not compute the manifest digest", error);
  }
  if (witnesses.size() != WitnessCount) return FailWith("the witness list is incomplete", error);
  const Offer offer = {manifest, component, channel, manifestDigest};
  SignedRelease reference;
  for (size_t index = 0; index < witnesses.size(); ++index) {
    if (!AskWitness(index + 1, witnesses[index], offer, fetch, reference, error)) return false;
  }

  // All three serve the same bytes, so one verification of the signature is enough.
  if (!VerifyDigestSignature(reference.block, reference.signature, keys)) {
    return RefuseRelease(manifest.version + " is not signed by a Vantrell release key", error);
  }
  std::string signedDigest;
  if (!ParseReleaseBlock(reference.block, manifest.version, component, signedDigest)) {
    return RefuseRelease("the signed release does not cover " + component, error);
  }
  if (signedDigest != manifestDigest) {
    error = "the signed digest for " + component + " does not match what was offered";
    LogLine("[Update] REFUSED - %s (signed %s, offered %s)", error.c_str(), signedDigest.c_str(),
            manifestDigest.c_str());
    return false;
  }
  LogLine("[Update] %s/%s signed by a release key and agreed by %d/%d witnesses",
          manifest.version.c_str(), component.c_str(), WitnessCount, WitnessCount);
  return true;
}

bool VerifyRelease(const UpdateManifest& manifest, const std::string& component,
                   const std::string& channel, std::string& error) {
  const std::vector<std::string> witnesses(std::begin(WitnessBaseUrls), std::end(WitnessBaseUrls));
  return VerifyReleaseQuorum(manifest, component, channel, witnesses, FetchToString, ReleaseKeys(),
                             error);
}

}  // namespace Vantrell
