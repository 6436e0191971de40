// The state-document seeds: the files of tests/fuzz/corpus/state, which is
// also the corpus scripts/fuzz.sh starts libFuzzer from.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "agent/source/StateDocument.h"
#include "tests/fuzz/Seeds.h"

std::vector<std::string> fuzzSeeds() {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(FHRP_STATE_CORPUS_DIR))
    files.push_back(entry.path());
  std::sort(files.begin(), files.end());  // the same order on every run
  std::vector<std::string> seeds;
  for (const auto& f : files) {
    std::ifstream in(f, std::ios::binary);
    seeds.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  return seeds;
}

bool fuzzTakes(const std::string& text) {
  try {
    Agent::parseStateDocument(text);
    return true;
  } catch (const Agent::StateDocumentError&) {
    return false;
  }
}
