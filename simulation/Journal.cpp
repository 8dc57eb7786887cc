#include "simulation/Journal.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <new>

namespace koriva::simulation {
namespace {

template <std::size_t size>
void copy(std::string_view text, std::array<char, size>& to) {
  to.fill('\0');
  std::copy_n(text.begin(), std::min(text.size(), size - 1), to.begin());
}

}  // namespace

Journal& Journal::make() {
  void* memory =
      mmap(nullptr, sizeof(Journal), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  return *new (memory) Journal;
}

void Journal::unmake() { munmap(this, sizeof(Journal)); }

void Journal::begin(std::uint64_t seed) {
  seed_ = seed;
  step_ = 0;
  written_ = 0;
  digest_ = 0xcbf29ce484222325;
}

void Journal::write(std::string_view line) {
  const auto put = [this](char c) {
    ring_[written_++ % ring_.size()] = c;
    digest_ = (digest_ ^ static_cast<unsigned char>(c)) * 0x100000001b3;  // FNV-1a
  };
  std::ranges::for_each(line, put);
  put('\n');
  ++lines_;
}

void Journal::end() {
  ++lives_;
  total_ += digest_;
}

void Journal::fail(std::string_view invariant, std::string_view detail) {
  setFailure(invariant, detail);
  _exit(1);
}

void Journal::setFailure(std::string_view invariant, std::string_view detail) {
  copy(invariant, invariant_);
  copy(detail, detail_);
}

std::string Journal::lastLines() const {
  std::string all;
  auto from = written_ - std::min(written_, ring_.size());
  for (; from < written_; ++from) all += ring_[from % ring_.size()];
  return all;
}

}  // namespace koriva::simulation
