// The writers' common output: a temporary file beside the target, renamed into place only once
// the index and the final header are on disk. A failed or abandoned write leaves nothing at the
// target and removes its temporary.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "io/vpd/VpdFileImpl.h"

namespace Vpd {
namespace detail {

namespace {

constexpr std::size_t bufferCapacity = 1 << 20;
std::atomic<std::uint64_t> temporaryCounter{0};

}  // namespace

std::unique_ptr<FileSink> FileSink::create(const std::string& path, const Header& header,
                                           std::string& error) {
  const std::string problem = headerProblem(header);
  if (!problem.empty()) {
    error = invalidHeaderMessage(path, problem);
    return nullptr;
  }
  std::unique_ptr<FileSink> sink(new FileSink);
  sink->target = path;
  sink->temporary = path + ".tmp" + std::to_string(::getpid()) + "." +
                    std::to_string(temporaryCounter.fetch_add(1));
  sink->fd = ::open(sink->temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (sink->fd < 0) {
    sink->temporary.clear();
    error = cannotCreateMessage(path);
    return nullptr;
  }
  sink->blockCount = header.blockNames.size();
  sink->headerBytes = encodeHeader(header);
  sink->buffer.reserve(bufferCapacity);
  if (!sink->append(sink->headerBytes.data(), sink->headerBytes.size())) {
    error = sink->err;
    return nullptr;
  }
  return sink;
}

FileSink::~FileSink() { discard(); }

void FileSink::discard() {
  if (fd >= 0) ::close(fd);
  fd = -1;
  if (!done && !temporary.empty()) std::remove(temporary.c_str());
  temporary.clear();
  buffer.clear();
  done = true;
}

void FileSink::fail() {
  if (err.empty()) err = writeFailedMessage(target);
  discard();
}

bool FileSink::writeAll(const unsigned char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t put = ::write(fd, bytes, count);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return false;
    bytes += put;
    count -= static_cast<std::size_t>(put);
    written += static_cast<std::uint64_t>(put);
  }
  return true;
}

bool FileSink::flush() {
  if (buffer.empty()) return true;
  const bool ok = writeAll(buffer.data(), buffer.size());
  buffer.clear();
  if (!ok) fail();
  return ok;
}

bool FileSink::append(const unsigned char* bytes, std::size_t count) {
  if (done || fd < 0) return false;
  if (buffer.size() + count > bufferCapacity && !flush()) return false;
  if (count >= bufferCapacity) {
    if (!writeAll(bytes, count)) {
      fail();
      return false;
    }
    return true;
  }
  buffer.insert(buffer.end(), bytes, bytes + count);
  return true;
}

bool FileSink::appendRecord(std::uint32_t id, const float* values, std::uint32_t valueCount) {
  if (done || fd < 0) return false;
  const std::size_t size = RecordHeaderSize + 4 * static_cast<std::size_t>(valueCount);
  if (buffer.size() + size > bufferCapacity && !flush()) return false;
  detail::appendRecord(buffer, id, values, valueCount);
  return true;
}

bool FileSink::commit(const IndexMap& index) {
  if (done || fd < 0) return false;
  const std::uint64_t indexOffset = position();
  const std::size_t entrySize = IndexEntryHeadSize + ExtentSize * blockCount;
  std::vector<unsigned char> indexBytes(4 + index.size() * entrySize, 0);
  putU32(indexBytes.data(), static_cast<std::uint32_t>(index.size()));
  unsigned char* p = indexBytes.data() + 4;
  for (const auto& [face, faceExtents] : index) {
    putU32(p, static_cast<std::uint32_t>(face));
    p += IndexEntryHeadSize;
    for (std::size_t b = 0; b < blockCount; ++b) {
      const Extent x = b < faceExtents.size() ? faceExtents[b] : Extent();
      putU64(p, x.offset);
      putU64(p + 8, x.size);
      putU64(p + 16, x.count);
      p += ExtentSize;
    }
  }
  if (!append(indexBytes.data(), indexBytes.size()) || !flush()) {
    fail();
    return false;
  }

  putU64(headerBytes.data() + 16, position());
  putU64(headerBytes.data() + 24, indexOffset);
  std::uint32_t crc = crc32(0, headerBytes.data(), headerBytes.size());
  crc = crc32(crc, indexBytes.data(), indexBytes.size());
  putU32(headerBytes.data() + ChecksumOffset, crc);

  std::size_t at = 0;
  while (at < headerBytes.size()) {
    const ssize_t put =
        ::pwrite(fd, headerBytes.data() + at, headerBytes.size() - at, static_cast<off_t>(at));
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) {
      fail();
      return false;
    }
    at += static_cast<std::size_t>(put);
  }
  const int closed = ::close(fd);
  fd = -1;
  if (closed != 0 || std::rename(temporary.c_str(), target.c_str()) != 0) {
    fail();
    return false;
  }
  done = true;
  temporary.clear();
  return true;
}

}  // namespace detail
}  // namespace Vpd
