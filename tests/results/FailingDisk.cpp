#include "FailingDisk.h"

#include <sqlite3.h>

#include <atomic>
#include <limits>

namespace test {
namespace {

constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

std::atomic<std::int64_t> writeCount{0};
std::atomic<std::int64_t> flushCount{0};
std::atomic<std::int64_t> firstFailingWrite{kNever};
std::atomic<std::int64_t> firstFailingFlush{kNever};

/// SQLite's file, with the real one behind it.
struct File {
  sqlite3_file base;
  sqlite3_file* real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

sqlite3_file* realOf(sqlite3_file* file) { return reinterpret_cast<File*>(file)->real(); }

bool isFull() { return ++writeCount >= firstFailingWrite; }

int close(sqlite3_file* file) { return realOf(file)->pMethods->xClose(realOf(file)); }
int read(sqlite3_file* file, void* bytes, int count, sqlite3_int64 offset) {
  return realOf(file)->pMethods->xRead(realOf(file), bytes, count, offset);
}
int write(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 offset) {
  if (isFull()) return SQLITE_FULL;
  return realOf(file)->pMethods->xWrite(realOf(file), bytes, count, offset);
}
int truncate(sqlite3_file* file, sqlite3_int64 size) {
  if (isFull()) return SQLITE_IOERR_TRUNCATE;
  return realOf(file)->pMethods->xTruncate(realOf(file), size);
}
/// Keeps the bytes where they are: what a power failure leaves is not this disk's matter.
int sync(sqlite3_file* /*file*/, int /*flags*/) {
  return ++flushCount >= firstFailingFlush ? SQLITE_IOERR_FSYNC : SQLITE_OK;
}
int fileSize(sqlite3_file* file, sqlite3_int64* size) {
  return realOf(file)->pMethods->xFileSize(realOf(file), size);
}
int lock(sqlite3_file* file, int level) {
  return realOf(file)->pMethods->xLock(realOf(file), level);
}
int unlock(sqlite3_file* file, int level) {
  return realOf(file)->pMethods->xUnlock(realOf(file), level);
}
int checkReservedLock(sqlite3_file* file, int* result) {
  return realOf(file)->pMethods->xCheckReservedLock(realOf(file), result);
}
int fileControl(sqlite3_file* file, int operation, void* argument) {
  return realOf(file)->pMethods->xFileControl(realOf(file), operation, argument);
}
int sectorSize(sqlite3_file* file) { return realOf(file)->pMethods->xSectorSize(realOf(file)); }
int deviceCharacteristics(sqlite3_file* file) {
  return realOf(file)->pMethods->xDeviceCharacteristics(realOf(file));
}
int shmMap(sqlite3_file* file, int page, int size, int extend, void volatile** memory) {
  if (extend != 0 && writeCount >= firstFailingWrite) return SQLITE_IOERR_SHMSIZE;
  return realOf(file)->pMethods->xShmMap(realOf(file), page, size, extend, memory);
}
int shmLock(sqlite3_file* file, int offset, int count, int flags) {
  return realOf(file)->pMethods->xShmLock(realOf(file), offset, count, flags);
}
void shmBarrier(sqlite3_file* file) { realOf(file)->pMethods->xShmBarrier(realOf(file)); }
int shmUnmap(sqlite3_file* file, int deleteFlag) {
  return realOf(file)->pMethods->xShmUnmap(realOf(file), deleteFlag);
}

constexpr sqlite3_io_methods kMethods{2,
                                      close,
                                      read,
                                      write,
                                      truncate,
                                      sync,
                                      fileSize,
                                      lock,
                                      unlock,
                                      checkReservedLock,
                                      fileControl,
                                      sectorSize,
                                      deviceCharacteristics,
                                      shmMap,
                                      shmLock,
                                      shmBarrier,
                                      shmUnmap,
                                      nullptr,
                                      nullptr};

int open(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* outFlags) {
  auto* const real = static_cast<sqlite3_vfs*>(vfs->pAppData);
  file->pMethods = nullptr;
  const int result = real->xOpen(real, name, realOf(file), flags, outFlags);
  if (result == SQLITE_OK) file->pMethods = &kMethods;
  return result;
}

sqlite3_vfs disk;

}  // namespace

FailingDisk::FailingDisk() {
  clear();
  sqlite3_vfs* const real = sqlite3_vfs_find("unix");
  disk = *real;
  disk.pNext = nullptr;
  disk.zName = "failing";
  disk.szOsFile = static_cast<int>(sizeof(File)) + real->szOsFile;
  disk.pAppData = real;
  disk.xOpen = open;
  sqlite3_vfs_register(&disk, 1);
}

FailingDisk::~FailingDisk() {
  sqlite3_vfs_unregister(&disk);
  sqlite3_vfs_register(sqlite3_vfs_find("unix"), 1);
}

void FailingDisk::fillAfter(std::int64_t n) {
  writeCount = 0;
  firstFailingWrite = n;
}

void FailingDisk::failFlushesAfter(std::int64_t n) {
  flushCount = 0;
  firstFailingFlush = n;
}

void FailingDisk::clear() {
  firstFailingWrite = kNever;
  firstFailingFlush = kNever;
  writeCount = 0;
  flushCount = 0;
}

std::int64_t FailingDisk::writes() { return writeCount; }
std::int64_t FailingDisk::flushes() { return flushCount; }

}  // namespace test
