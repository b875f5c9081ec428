#include "base/VrAtomicFile.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

namespace {

// What is handed to the disk at a time, written or copied: a few megabytes.
constexpr std::streamoff handOverBytes = std::streamoff(2) << 20;

// Forces the contents of `path` (a file or a folder) to the disk. Without it a crash soon after
// the rename may leave the new name pointing at an empty or partial file on some file systems.
bool syncPath(const std::string& path, int flags) {
  const int fd = ::open(path.c_str(), flags | O_CLOEXEC);
  if (fd < 0) return false;
  const bool synced = ::fsync(fd) == 0;
  ::close(fd);
  return synced;
}

// The folder that holds `path`, where the rename is recorded.
std::string folderOf(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

VrAtomicFile::VrAtomicFile(const std::string& path)
    : target(path), temporary(path + ".tmp" + std::to_string(getpid())) {
  stream.open(temporary, std::ios::binary | std::ios::trunc);
}

VrAtomicFile::~VrAtomicFile() {
  if (syncHandle >= 0) ::close(syncHandle);
  if (committed) return;
  if (stream.is_open()) stream.close();
  std::remove(temporary.c_str());
}

bool VrAtomicFile::openSyncHandle() {
  if (syncHandle < 0 && stream.is_open()) syncHandle = ::open(temporary.c_str(), O_WRONLY | O_CLOEXEC);
  return syncHandle >= 0;
}

bool VrAtomicFile::appendFrom(int fd, uint64_t offset, uint64_t bytes) {
  if (!ok() || !stream.flush()) return false;
  const std::streamoff start = stream.tellp();
  if (start < 0 || !openSyncHandle()) return false;
  auto from = static_cast<off_t>(offset);
  auto to = static_cast<off_t>(start);
  handOver(start);
  uint64_t left = bytes;
  // The kernel copies page to page; where it cannot (another file system, an old kernel), the
  // bytes go through a buffer. The copy goes a few megabytes at a time, each handed to the disk
  // as soon as it is in, so that the disk writes one piece while the next is copied and
  // `commit` waits for the last piece only.
  while (left > 0) {
    const size_t piece = static_cast<size_t>(std::min<uint64_t>(left, handOverBytes));
    const ssize_t copied = ::copy_file_range(fd, &from, syncHandle, &to, piece, 0);
    if (copied <= 0) break;
    handOver(to);
    left -= static_cast<uint64_t>(copied);
  }
  std::vector<char> piece(left ? size_t(1) << 20 : 0);
  while (left > 0) {
    const size_t want = left < piece.size() ? static_cast<size_t>(left) : piece.size();
    const ssize_t got = ::pread(fd, piece.data(), want, from);
    if (got <= 0 || ::pwrite(syncHandle, piece.data(), static_cast<size_t>(got), to) != got) return false;
    from += got;
    to += got;
    left -= static_cast<uint64_t>(got);
  }
  stream.seekp(to);
  appended += static_cast<std::streamoff>(bytes);
  return ok();
}

void VrAtomicFile::writeBehind() {
  if (!stream.is_open() || appended < handedOver + handOverBytes) return;
  if (!openSyncHandle()) return;
  stream.flush();
  handOver(appended);
}

void VrAtomicFile::handOver(std::streamoff upTo) {
  if (upTo <= handedOver) return;
  ::sync_file_range(syncHandle, handedOver, upTo - handedOver, SYNC_FILE_RANGE_WRITE);
  handedOver = upTo;
}

bool VrAtomicFile::commit() {
  if (!stream.is_open()) return false;
  stream.flush();
  const bool written = stream.good();
  stream.close();
  if (!written || stream.fail()) return false;
  if (!syncPath(temporary, O_RDONLY)) return false;
  if (std::rename(temporary.c_str(), target.c_str()) != 0) return false;
  committed = true;
  // The rename is in place already; a folder that cannot be synced (some file systems refuse
  // it) does not undo the save.
  syncPath(folderOf(target), O_RDONLY | O_DIRECTORY);
  return true;
}
