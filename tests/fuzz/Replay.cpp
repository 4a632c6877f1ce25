// Drives a target without libFuzzer: replays its corpus, then a fixed number of mutations of it.
//
//     PROGRAM [MUTATIONS] FILE-OR-FOLDER...
//
// The mutations depend on nothing but the corpus, so that a run can be repeated. An input that
// fails is left in the file "PROGRAM.failed" of the working folder.

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "EntryPoints.h"

extern "C" __attribute__((weak)) void __sanitizer_set_death_callback(void (*callback)());

// UndefinedBehaviorSanitizer has no such callback; it shall end by the signal that is handled here.
extern "C" __attribute__((visibility("default"))) const char* __ubsan_default_options() {
  return "abort_on_error=1";
}

namespace {

using Input = std::vector<std::uint8_t>;

constexpr std::size_t largest = 4096;
constexpr unsigned slowSeconds = 10;

std::mt19937 random_(20261121);
Input current;
std::string failedFile;

std::size_t below(std::size_t limit) { return random_() % limit; }

void leaveInput() {
  const int file = open(failedFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  const ssize_t written = write(file, current.data(), current.size());
  std::fprintf(stderr, "the input %s %s\n", written < 0 ? "cannot be kept in" : "is in",
               failedFile.c_str());
}

void endBySignal(int signal) {
  if (signal == SIGALRM) std::fputs("too slow\n", stderr);
  leaveInput();
  _exit(1);
}

void run() {
  alarm(slowSeconds);
  LLVMFuzzerTestOneInput(current.data(), current.size());
  alarm(0);
}

std::vector<Input> readCorpus(const std::vector<std::string>& paths) {
  std::vector<std::filesystem::path> files;
  for (const std::string& path : paths) {
    if (std::filesystem::is_directory(path)) {
      for (const auto& entry : std::filesystem::directory_iterator(path)) {
        files.push_back(entry.path());
      }
    } else {
      files.emplace_back(path);
    }
  }
  std::ranges::sort(files);
  std::vector<Input> corpus;
  for (const std::filesystem::path& file : files) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
      std::fprintf(stderr, "cannot read %s\n", file.c_str());
      std::exit(2);
    }
    corpus.emplace_back(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
  }
  return corpus;
}

void mutate(const std::vector<Input>& corpus) {
  current = corpus[below(corpus.size())];
  const std::size_t capacity = std::max(largest, current.size() + 1);
  for (std::size_t rounds = 1 + below(4); rounds > 0; --rounds) {
    std::size_t size = current.size();
    current.resize(capacity);
    size = LLVMFuzzerCustomMutator != nullptr
               ? LLVMFuzzerCustomMutator(current.data(), size, capacity, random_())
               : LLVMFuzzerMutate(current.data(), size, capacity);
    current.resize(size);
  }
  current.shrink_to_fit();  // so that AddressSanitizer sees a read past the end
}

}  // namespace

std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t capacity) {
  Input input(data, data + size);
  const auto place = [&] { return input.begin() + static_cast<std::ptrdiff_t>(below(size)); };
  const auto piece = [&] {
    const std::size_t from = below(size);
    return Input(input.begin() + static_cast<std::ptrdiff_t>(from),
                 input.begin() + static_cast<std::ptrdiff_t>(
                                     from + 1 + below(std::min<std::size_t>(size - from, 32))));
  };
  switch (size == 0 ? 0 : below(6)) {
    case 0:
      input.insert(size == 0 ? input.begin() : place(), static_cast<std::uint8_t>(random_()));
      break;
    case 1:
      *place() ^= static_cast<std::uint8_t>(1U << below(8));
      break;
    case 2:
      *place() = static_cast<std::uint8_t>(random_());
      break;
    case 3:
      input.erase(place());
      break;
    case 4: {
      const Input copied = piece();
      input.insert(place(), copied.begin(), copied.end());
      break;
    }
    default: {
      const auto from = place();
      input.erase(from, from + static_cast<std::ptrdiff_t>(below(std::min<std::size_t>(
                                   static_cast<std::size_t>(input.end() - from), 32))));
      break;
    }
  }
  input.resize(std::min(input.size(), capacity));
  std::ranges::copy(input, data);
  return input.size();
}

int main(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  unsigned long mutations = 0;
  if (!arguments.empty() && !std::filesystem::exists(arguments.front())) {
    mutations = std::strtoul(arguments.front().c_str(), nullptr, 10);
    arguments.erase(arguments.begin());
  }
  const std::vector<Input> corpus = readCorpus(arguments);
  if (corpus.empty()) {
    std::fprintf(stderr, "usage: %s [MUTATIONS] FILE-OR-FOLDER...\n", argv[0]);
    return 2;
  }
  failedFile = std::filesystem::path(argv[0]).filename().string() + ".failed";
  std::signal(SIGABRT, endBySignal);
  std::signal(SIGALRM, endBySignal);
  if (__sanitizer_set_death_callback != nullptr) __sanitizer_set_death_callback(leaveInput);
  for (const Input& input : corpus) {
    current = input;
    run();
  }
  for (unsigned long i = 0; i < mutations; ++i) {
    mutate(corpus);
    run();
  }
  std::printf("%zu files and %lu mutations of them\n", corpus.size(), mutations);
  return 0;
}
