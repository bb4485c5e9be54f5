#include "trust/witness_quorum.h"

#include <gtest/gtest.h>

#include <tuple>

#include "base/file_content.h"
#include "update/update.h"

namespace Vantrell {

static std::string Data(const char* name) {
  return ReadWholeFile(TEST_DATA_DIR "/" + std::string(name));
}

static ReleaseKey KeyOf(const std::string& der) {
  return {reinterpret_cast<const unsigned char*>(der.data()), static_cast<uint32_t>(der.size())};
}

const std::string Der[] = {Data("release-key-1.der"), Data("release-key-2.der"), "no key"};
const ReleaseKey Keys[] = {KeyOf(Der[0]), KeyOf(Der[1]), KeyOf(Der[2])};
const std::string Digest = "8adc4a7bac46cb184020f6429057f5318ef73b8f0986d4576d03d9469b7ed3c4";

const std::string Unreachable = " unreachable: HTTP 404";
const std::string Differs = " serves a different signed release";
const std::string Disagrees = " disagrees for 2.4.0/client-linux-amd64";

// All requests in their order. For each: the refusal when it fails; when its answer differs in
// one byte, how many requests were made, and the refusal.
const std::vector<std::tuple<std::string, std::string, size_t, std::string>> Requests = {
    {"https://w1/beta/2.4.0.release.block", "1" + Unreachable, 5, "2" + Differs},
    {"https://w1/beta/2.4.0.release.sig", "1" + Unreachable, 5, "2" + Differs},
    {"https://w1/beta/2.4.0.client-linux-amd64.sha256", "1" + Disagrees, 3, "1" + Disagrees},
    {"https://w2/x/beta/2.4.0.release.block", "2" + Unreachable, 5, "2" + Differs},
    {"https://w2/x/beta/2.4.0.release.sig", "2" + Unreachable, 5, "2" + Differs},
    {"https://w2/x/beta/2.4.0.client-linux-amd64.sha256", "2" + Disagrees, 6, "2" + Disagrees},
    {"https://w3/beta/2.4.0.release.block", "3" + Unreachable, 8, "3" + Differs},
    {"https://w3/beta/2.4.0.release.sig", "3" + Unreachable, 8, "3" + Differs},
    {"https://w3/beta/2.4.0.client-linux-amd64.sha256", "3" + Disagrees, 9, "3" + Disagrees},
};

// One pass over three witnesses that serve the same release.
struct Quorum {
  std::string block = Data("release.block");
  std::string signature = Data("release.sig1");
  std::string digest = Digest;
  std::vector<ReleaseKey> keys = {Keys[0], Keys[1]};
  std::vector<std::string> witnesses = {"https://w1", "https://w2/x", "https://w3"};
  size_t failing = 0;  // the request, counted from 1, that is answered by a 404
  size_t altered = 0;  // the request whose answer differs in one byte
  size_t requests = 0;
};

static void Expect(Quorum quorum, size_t requests, const std::string& error,
                   const std::string& log) {
  const UpdateManifest offer = {"2.4.0", "", "", {{"harbor.deb", std::string(64, 'a'), 7, ""}}};
  const auto fetch = [&quorum](const std::string& url, std::string& body, std::string& reason) {
    EXPECT_EQ(url, std::get<0>(Requests.at(quorum.requests++)));
    body = url.ends_with(".block") ? quorum.block : quorum.signature;
    if (url.ends_with(".sha256")) body = quorum.digest;
    if (quorum.requests == quorum.altered) body[30] = static_cast<char>(body[30] ^ 1);
    reason = "HTTP 404";
    return quorum.requests != quorum.failing;
  };
  std::string actual = "none";
  testing::internal::CaptureStderr();
  EXPECT_EQ(VerifyReleaseQuorum(offer, "client-linux-amd64", "beta", quorum.witnesses, fetch,
                                quorum.keys, actual),
            error == "none");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), log);
  EXPECT_EQ(actual, error);
  EXPECT_EQ(quorum.requests, requests);
}

static void ExpectNoQuorum(const Quorum& quorum, size_t requests, const std::string& witness) {
  const std::string error = "witness " + witness;
  Expect(quorum, requests, error, "[Update] quorum REFUSED - " + error + "\n");
}

const std::string Verified = "[Update] digest signature verified against release key ";

TEST(WitnessQuorum, AcceptsWhatIsSignedAndServedByAllThree) {
  const std::string accepted =
      "\n[Update] 2.4.0/client-linux-amd64 signed by a release key and agreed by 3/3 witnesses\n";
  Expect({.digest = " 8ADC" + Digest.substr(4) + "\r\n"}, 9, "none", Verified + "1" + accepted);
  for (const ReleaseKey& first : {Keys[0], Keys[2]}) {
    const Quorum quorum = {.signature = Data("release.sig2"), .keys = {first, Keys[1]}};
    Expect(quorum, 9, "none", (Verified + "2").append(accepted));
  }
}

TEST(WitnessQuorum, EndsAtTheFirstRequestThatFailsOrDiffers) {
  size_t request = 0;
  for (const auto& [url, whenFailing, requests, whenAltered] : Requests) {
    SCOPED_TRACE(url);
    ++request;
    ExpectNoQuorum({.failing = request}, request, whenFailing);
    ExpectNoQuorum({.altered = request}, requests, whenAltered);
  }
  for (const std::string& digest : {"\n" + Digest, Digest + "  harbor.deb", std::string()}) {
    ExpectNoQuorum({.digest = digest}, 3, "1" + Disagrees);
  }
}

TEST(WitnessQuorum, RefusesWhatIsNotAcceptable) {
  for (const size_t count : {2u, 4u}) {
    Expect({.witnesses = {count, "https://w1"}}, 0, "the witness list is incomplete", "");
  }
  std::string error = "2.4.0 is not signed by a Vantrell release key";
  for (const std::string& bad : {std::string(), Data("release.sig2"), Data("release.sig1") + "x"}) {
    Expect({.signature = bad, .keys = {Keys[0]}}, 9, error, "[Update] REFUSED - " + error + "\n");
  }
  error = "the signed release does not cover client-linux-amd64";
  Expect({.block = Data("uncovered.block"), .signature = Data("uncovered.sig1")}, 9, error,
         Verified + "1\n[Update] REFUSED - " + error + "\n");
  error = "the signed digest for client-linux-amd64 does not match what was offered";
  Expect({.block = Data("mismatch.block"), .signature = Data("mismatch.sig1")}, 9, error,
         Verified + "1\n[Update] REFUSED - " + error + " (signed " + std::string(64, 'b') +
             ", offered " + Digest + ")\n");
}

}  // namespace Vantrell
