#include "CapturedScreen.h"

#include <cerrno>
#include <system_error>

#include <sys/mman.h>
#include <unistd.h>

namespace test {
namespace {

quillon::internal::Descriptor newFile() {
  quillon::internal::Descriptor file(memfd_create("screen", MFD_CLOEXEC));
  if (!file) throw std::system_error(errno, std::generic_category(), "memfd_create");
  return file;
}

std::string contentOf(const quillon::internal::Descriptor& file) {
  std::string text(static_cast<std::size_t>(lseek(file.get(), 0, SEEK_CUR)), '\0');
  const ssize_t count = pread(file.get(), text.data(), text.size(), 0);
  text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return text;
}

}  // namespace

CapturedScreen::CapturedScreen()
    : output_(newFile()), errors_(newFile()), screen_(output_.get(), errors_.get()) {}

std::string CapturedScreen::output() const { return contentOf(output_); }
std::string CapturedScreen::errors() const { return contentOf(errors_); }

}  // namespace test
