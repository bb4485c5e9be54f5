#include "trust/witness_quorum.h"

#include <gtest/gtest.h>

#include "tests/unit/trust/release_data.h"
#include "update/update.h"

namespace Vantrell {
namespace {

const std::string Unreachable = " unreachable: HTTP 404";
const std::string Differs = " serves a different signed release";
const std::string Disagrees = " disagrees for 2.4.0/client-linux-amd64";

struct RequestCase {
  std::string url;
  std::string whenFailing;     // the refused witness, and why
  size_t requestsWhenAltered;  // made until the refusal, when one byte of the answer differs
  std::string whenAltered;
};

const RequestCase Requests[] = {
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

// Three witnesses that serve the same release.
struct Quorum {
  std::string release = "release";
  std::string signature = ".sig1";
  std::string digest = DigestOfRelease;
  std::vector<std::string> witnesses = {"https://w1", "https://w2/x", "https://w3"};
  size_t failing = 0;  // the request, counted from 1, that is answered by a 404
  size_t altered = 0;  // the request whose answer differs in one byte
};

void Expect(const Quorum& quorum, size_t requests, const std::string& error,
            const std::string& log) {
  const std::string der = ReleaseData("release-key-1.der");
  size_t made = 0;
  const auto fetch = [&](const std::string& url, std::string& body, std::string& reason) {
    EXPECT_EQ(url, Requests[made++].url);
    body = ReleaseData(quorum.release + (url.ends_with(".sig") ? quorum.signature : ".block"));
    if (url.ends_with(".sha256")) body = quorum.digest;
    if (made == quorum.altered) body[30] = static_cast<char>(body[30] ^ 1);
    reason = "HTTP 404";
    return made != quorum.failing;
  };
  std::string actual;
  testing::internal::CaptureStderr();
  EXPECT_EQ(VerifyReleaseQuorum(OfferOfRelease, "client-linux-amd64", "beta", quorum.witnesses,
                                fetch, {KeyOf(der)}, actual),
            error.empty());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), log);
  EXPECT_EQ(actual, error);
  EXPECT_EQ(made, requests);
}

void ExpectNoQuorum(const Quorum& quorum, size_t requests, const std::string& witness) {
  const std::string error = "witness " + witness;
  Expect(quorum, requests, error, "[Update] quorum REFUSED - " + error + "\n");
}

TEST(WitnessQuorum, EndsAtTheFirstRequestThatFailsOrDiffers) {
  size_t request = 0;
  for (const RequestCase& given : Requests) {
    SCOPED_TRACE(given.url);
    ++request;
    ExpectNoQuorum({.failing = request}, request, given.whenFailing);
    ExpectNoQuorum({.altered = request}, given.requestsWhenAltered, given.whenAltered);
  }
  ExpectNoQuorum({.digest = ""}, 3, "1" + Disagrees);
  ExpectNoQuorum({.digest = DigestOfRelease + "  harbor.deb"}, 3, "1" + Disagrees);
}

const std::string Verified = "[Update] digest signature verified against release key 1\n[Update] ";

TEST(WitnessQuorum, ProvesASignedReleaseThatIsTheOffer) {
  const std::string agreed = "2.4.0/client-linux-amd64 signed by a release key and agreed by 3/3";
  Expect({.digest = " 8ADC" + DigestOfRelease.substr(4) + "\r\n"}, 9, "",
         Verified + agreed + " witnesses\n");
}

TEST(WitnessQuorum, RefusesAReleaseOfTwoWitnessesOrWithoutASignatureOrForAnotherOffer) {
  Expect({.witnesses = {"https://w1", "https://w2/x"}}, 0, "the witness list is incomplete", "");
  const std::string stranger = "2.4.0 is not signed by a Vantrell release key";
  const std::string uncovered = "the signed release does not cover client-linux-amd64";
  const std::string differs =
      "the signed digest for client-linux-amd64 does not match what was offered";
  const std::string digests =
      " (signed " + std::string(64, 'b') + ", offered " + DigestOfRelease + ")";
  Expect({.signature = ".sig2"}, 9, stranger, "[Update] REFUSED - " + stranger + "\n");
  Expect({.release = "uncovered"}, 9, uncovered, Verified + "REFUSED - " + uncovered + "\n");
  Expect({.release = "mismatch"}, 9, differs, Verified + "REFUSED - " + differs + digests + "\n");
}

}  // namespace
}  // namespace Vantrell
