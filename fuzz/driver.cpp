// Stands in for libFuzzer where the compiler has none: replays every input of
// the corpus folders, then runs mutations of them for a moment.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

using Input = std::vector<uint8_t>;

std::vector<Input> load(const std::filesystem::path& folder) {
  std::vector<Input> inputs;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (!entry.is_regular_file()) continue;
    std::ifstream file(entry.path(), std::ios::binary);
    inputs.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return inputs;
}

Input mutate(const std::vector<Input>& corpus, std::mt19937& random) {
  const auto below = [&random](size_t limit) { return limit == 0 ? 0 : random() % limit; };
  Input input = corpus[below(corpus.size())];
  static const uint8_t kInteresting[] = {0x00, 0x01, 0x7F, 0x80, 0xFF, 0x0A, 0x0D, 0x30, 0x2D};
  for (size_t changes = 1 + below(8); changes > 0; --changes) {
    const size_t at = below(input.size());
    switch (below(6)) {
      case 0:
        if (!input.empty()) input[at] ^= static_cast<uint8_t>(1U << below(8));
        break;
      case 1:
        if (!input.empty()) input[at] = kInteresting[below(sizeof kInteresting)];
        break;
      case 2:
        input.resize(at);
        break;
      case 3:
        input.insert(input.begin() + static_cast<std::ptrdiff_t>(at), 1 + below(64),
                     kInteresting[below(sizeof kInteresting)]);
        break;
      case 4: {
        const Input& other = corpus[below(corpus.size())];
        const size_t from = below(other.size());
        input.insert(input.begin() + static_cast<std::ptrdiff_t>(at),
                     other.begin() + static_cast<std::ptrdiff_t>(from), other.end());
        break;
      }
      default: {
        const size_t to = at + below(input.size() - at + 1);
        input.erase(input.begin() + static_cast<std::ptrdiff_t>(at),
                    input.begin() + static_cast<std::ptrdiff_t>(to));
      }
    }
  }
  return input;
}

void run(const Input& input) {
  // A copy of its own, exactly as long: the sanitizer sees a read behind it.
  const Input exact(input);
  LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

}  // namespace

int main(int argc, char** argv) {
  int seconds = 0;
  std::vector<Input> corpus;
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--seconds") == 0 && i + 1 < argc) {
      seconds = atoi(argv[++i]);
      continue;
    }
    for (Input& input : load(argv[i])) corpus.push_back(std::move(input));
  }
  if (corpus.empty()) {
    fprintf(stderr, "no inputs\n");
    return 1;
  }
  for (const Input& input : corpus) run(input);
  const auto seed = static_cast<unsigned>(time(nullptr));
  std::mt19937 random(seed);
  printf("%zu inputs replayed, seed %u\n", corpus.size(), seed);
  fflush(stdout);
  const std::string candidate = std::string(argv[0]) + ".candidate";
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  unsigned long runs = 0;
  while (std::chrono::steady_clock::now() < end) {
    const Input input = mutate(corpus, random);
    // Left behind by a crash, to be kept as a regression input.
    std::ofstream(candidate, std::ios::binary)
        .write(reinterpret_cast<const char*>(input.data()),
               static_cast<std::streamsize>(input.size()));
    run(input);
    ++runs;
  }
  std::filesystem::remove(candidate);
  printf("%lu mutations\n", runs);
  return 0;
}
