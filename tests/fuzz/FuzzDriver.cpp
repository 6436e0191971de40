// Runs a fuzz target without libFuzzer, over a fixed corpus: the seeds
// (Seeds.h), every truncation of each seed, and mutations drawn from a
// fixed-seed generator, so that every run checks the same inputs.
//
//   DRIVER                   run the fixed corpus
//   DRIVER --write-seeds DIR write the seeds as files (libFuzzer corpus)
//   DRIVER FILE...           replay inputs (e.g. a crash file)
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "tests/fuzz/Seeds.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr int kMutations = 20000;

void run(const std::string& input) {
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
}

std::string mutate(std::string s, std::mt19937& rng) {
  static const std::string alphabet =
      "'\\{}(),:* /.0123456789abcdefVvlanRouting::Fhrp\n\t\"[]-+eEu";
  for (unsigned edits = 1 + rng() % 4; edits > 0; --edits) {
    std::size_t at = s.empty() ? 0 : rng() % (s.size() + 1);
    char c = rng() % 4 == 0 ? static_cast<char>(rng() % 256) : alphabet[rng() % alphabet.size()];
    const unsigned op = rng() % 4;
    if (op == 0)
      s.insert(at, 1, c);
    else if (at >= s.size())
      continue;
    else if (op == 1)
      s.erase(at, 1 + rng() % 8);
    else if (op == 2)
      s[at] = c;
    else  // duplicate a slice, which repeats attributes and brackets
      s.insert(at, s.substr(at, 1 + rng() % 40));
  }
  return s;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> seeds = fuzzSeeds();
  if (argc == 3 && std::string(argv[1]) == "--write-seeds") {
    for (std::size_t i = 0; i < seeds.size(); ++i)
      std::ofstream(std::string(argv[2]) + "/seed" + std::to_string(i), std::ios::binary)
          << seeds[i];
    return 0;
  }
  if (argc > 1) {
    for (int i = 1; i < argc; ++i) {
      std::ifstream in(argv[i], std::ios::binary);
      run(std::string(std::istreambuf_iterator<char>(in), {}));
    }
    return 0;
  }
  std::size_t inputs = 0, parsed = 0;
  for (const std::string& seed : seeds) {
    if (!fuzzTakes(seed)) {
      std::fprintf(stderr, "seed is refused: %s\n", seed.c_str());
      return 1;
    }
    for (std::size_t n = 0; n <= seed.size(); ++n, ++inputs) run(seed.substr(0, n));
  }
  std::mt19937 rng(20240611u);
  for (int i = 0; i < kMutations; ++i, ++inputs) {
    const std::string input = mutate(seeds[rng() % seeds.size()], rng);
    run(input);
    parsed += fuzzTakes(input);
  }
  std::printf("fuzz driver: %zu inputs (%zu mutants taken), no fault\n", inputs, parsed);
  return 0;
}
