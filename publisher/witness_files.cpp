#include "publisher/witness_files.h"

#include <algorithm>
#include <future>
#include <set>

#include "base/lines.h"
#include "publisher/shown_text.h"
#include "trust/digest.h"
#include "trust/release_block.h"
#include "trust/signature.h"

namespace Vantrell::Publisher {
namespace {

constexpr size_t SignatureBytes = 256;  // of RSA-2048, the size of every release key

std::string OtherDigest(const std::string& named, const std::string& offered) {
  return "names the digest " + named + ", but that of the offer is " + offered;
}

// Why the service does not find the digest in a block.
std::string FormFault(const std::string& block, const std::string& version,
                      const std::string& component) {
  const std::vector<std::string> lines = SplitLines(block);
  if (lines.empty()) return "is empty";
  if (NormalizeDigest(lines[0]) != ReleaseBlockFormat) {
    return "begins with " + Quoted(lines[0]) + " instead of " + Quoted(ReleaseBlockFormat);
  }
  if (lines.size() == 1) return "has only one line";
  if (NormalizeDigest(lines[1]) != NormalizeDigest(version)) {
    return "is for version " + Quoted(lines[1]);
  }
  for (size_t index = 2; index < lines.size(); ++index) {
    if (lines[index].substr(0, lines[index].find_first_of(" \t")) != component) continue;
    return "has the line " + Quoted(lines[index]) + " without a well-formed digest";
  }
  return "has no line for " + component;
}

std::string BlockFault(const std::string& block, const UpdateManifest& manifest,
                       const std::string& component, const std::string& offered) {
  std::string named;
  if (!ParseReleaseBlock(block, manifest.version, component, named)) {
    return FormFault(block, manifest.version, component);
  }
  return named == offered ? "" : OtherDigest(Quoted(named), offered);
}

std::string DigestFault(const std::string& text, const std::string& offered) {
  const std::string named = NormalizeDigest(text);
  if (named == offered) return "";
  if (named.starts_with(offered)) return "has text after the digest: " + Quoted(text);
  if (IsDigest(named)) return OtherDigest(named, offered);
  return "holds " + Quoted(text) + " instead of a digest";
}

// The number of the key that made the signature, counted from 1; 0 if none did.
size_t KeyNumber(const std::string& block, const std::string& signature,
                 const std::vector<ReleaseKey>& keys) {
  for (size_t index = 0; index < keys.size(); ++index) {
    if (VerifyDigestSignature(block, signature, {keys[index]})) return index + 1;
  }
  return 0;
}

bool IsRight(const WitnessFile* file) { return file->isFetched && file->fault.empty(); }

std::vector<WitnessFile*> Fetched(size_t file, std::vector<Witness>& witnesses) {
  std::vector<WitnessFile*> fetched;
  for (Witness& witness : witnesses) {
    if (witness.files[file].isFetched) fetched.push_back(&witness.files[file]);
  }
  return fetched;
}

// Why no key has made a signature.
std::string SignatureFault(const std::string& signature) {
  if (signature.size() == SignatureBytes) return "is not a signature of the block by a release key";
  return "has " + std::to_string(signature.size()) + " bytes instead of " +
         std::to_string(SignatureBytes);
}

// Each signature is tried with the blocks of all witnesses: beside a wrong block it is still right.
void JudgeSignatures(const std::vector<ReleaseKey>& keys, std::vector<Witness>& witnesses) {
  const std::vector<WitnessFile*> blocks = Fetched(BlockFile, witnesses);
  const bool someAreRight = std::any_of(blocks.begin(), blocks.end(), IsRight);
  std::set<const WitnessFile*> signedBlocks;
  for (WitnessFile* signature : Fetched(SignatureFile, witnesses)) {
    bool signsRightBlock = false;
    for (const WitnessFile* block : blocks) {
      const size_t key = KeyNumber(block->body, signature->body, keys);
      if (key == 0) continue;
      signature->remark = "by release key " + std::to_string(key);
      signedBlocks.insert(block);
      signsRightBlock = signsRightBlock || IsRight(block);
    }
    if (blocks.empty()) {
      signature->fault = "cannot be judged without a block";
    } else if (signature->remark.empty()) {
      signature->fault = SignatureFault(signature->body);
    } else if (someAreRight && !signsRightBlock) {
      signature->fault = "is that of a wrong block";
    }
  }
  if (signedBlocks.empty()) return;  // the signatures are wrong, and say nothing about the blocks
  for (WitnessFile* block : blocks) {
    if (IsRight(block) && signedBlocks.count(block) == 0) {
      block->fault = "is not the block that was signed";
    }
  }
}

// Compares one file of all witnesses, byte by byte.
void JudgeDifferences(size_t file, std::vector<Witness>& witnesses) {
  std::vector<size_t> candidates;
  for (size_t number = 0; number < witnesses.size(); ++number) {
    if (IsRight(&witnesses[number].files[file])) candidates.push_back(number);
  }
  for (const size_t number : candidates) {
    WitnessFile& judged = witnesses[number].files[file];
    std::string others;
    size_t differing = 0;
    for (const size_t other : candidates) {
      if (witnesses[other].files[file].body == judged.body) continue;
      ++differing;
      others += (others.empty() ? "witness " : " and witness ") + std::to_string(other + 1);
    }
    if (differing * 2 >= candidates.size() && differing > 0) {
      judged.fault = "differs from that of " + others;
    }
  }
}

}  // namespace

std::vector<Witness> FetchWitnessFiles(const UpdateManifest& manifest, const std::string& component,
                                       const std::string& channel,
                                       const std::vector<std::string>& baseUrls,
                                       const WitnessFetch& fetch) {
  std::vector<Witness> witnesses(baseUrls.size());
  std::vector<std::future<void>> fetches;
  for (size_t number = 0; number < witnesses.size(); ++number) {
    witnesses[number].baseUrl = baseUrls[number];
    const auto urls = WitnessFileUrls(baseUrls[number], channel, manifest.version, component);
    for (size_t index = 0; index < urls.size(); ++index) {
      WitnessFile& file = witnesses[number].files[index];
      file.url = urls[index];
      fetches.push_back(std::async(std::launch::async, [&fetch, &file] {
        file.isFetched = fetch(file.url, file.body, file.fault);
      }));
    }
  }
  for (std::future<void>& one : fetches) one.get();
  return witnesses;
}

void JudgeWitnessFiles(const UpdateManifest& manifest, const std::string& component,
                       const std::vector<ReleaseKey>& keys, std::vector<Witness>& witnesses) {
  const std::string offered = ManifestDigest(manifest, component);
  for (Witness& witness : witnesses) {
    WitnessFile& block = witness.files[BlockFile];
    if (block.isFetched) block.fault = BlockFault(block.body, manifest, component, offered);
    WitnessFile& digest = witness.files[DigestFile];
    if (digest.isFetched) digest.fault = DigestFault(digest.body, offered);
  }
  JudgeSignatures(keys, witnesses);
  JudgeDifferences(BlockFile, witnesses);
  JudgeDifferences(SignatureFile, witnesses);
}

std::string OtherDigestOfAll(const UpdateManifest& manifest, const std::string& component,
                             const std::vector<Witness>& witnesses) {
  std::string common;
  for (const Witness& witness : witnesses) {
    const WitnessFile& block = witness.files[BlockFile];
    if (block.isFetched && block.fault.empty()) return "";  // then the digest files are wrong
    const std::string named = NormalizeDigest(witness.files[DigestFile].body);
    if (named.size() != DigestLength || (!common.empty() && named != common)) return "";
    common = named;
  }
  return common == ManifestDigest(manifest, component) ? "" : common;
}

}  // namespace Vantrell::Publisher
