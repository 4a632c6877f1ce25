#include "CrashPage.h"

#include <cerrno>
#include <cstddef>
#include <system_error>

#include <sys/mman.h>
#include <unistd.h>

namespace station {
namespace {

constexpr std::size_t kSize = sizeof(std::atomic<int>);

static_assert(std::atomic<int>::is_always_lock_free);

}  // namespace

quillon::internal::Descriptor CrashPage::make() {
  quillon::internal::Descriptor memory(memfd_create("quillon-crash", MFD_CLOEXEC));
  if (!memory || ftruncate(memory.get(), kSize) != 0) {
    throw std::system_error(errno, std::generic_category(), "memfd_create");
  }
  return memory;
}

CrashPage::CrashPage(int descriptor) {
  void* const memory = mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  // New memory is all 0, which is such an object's value, and the peer may have told already.
  if (memory != MAP_FAILED) who_ = static_cast<std::atomic<int>*>(memory);
}

CrashPage::~CrashPage() {
  if (who_ != nullptr) munmap(who_, kSize);
}

void CrashPage::tell(int who) noexcept {
  int nobody = 0;
  if (who_ != nullptr) who_->compare_exchange_strong(nobody, who);
}

int CrashPage::told() const noexcept { return who_ != nullptr ? who_->load() : 0; }

}  // namespace station
