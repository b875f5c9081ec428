// Loading particle files into memory, inflating gzip-compressed ones.

#include "io/particles/VrParticleBytes.h"

#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace vrparticles {

bool isGzip(const unsigned char* bytes, size_t size) { return size >= 2 && bytes[0] == 0x1f && bytes[1] == 0x8b; }

std::string fileName(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

namespace {

// The most a compressed particle file may inflate to: VORN_MAX_PARTICLE_BYTES when set to a
// positive number, otherwise half of the machine's memory. A small file that inflates past it
// (a "zip bomb", or damage that happens to decode) is refused instead of exhausting memory.
size_t inflateLimit() {
  if (const char* text = std::getenv("VORN_MAX_PARTICLE_BYTES")) {
    char* end = nullptr;
    const unsigned long long value = std::strtoull(text, &end, 10);
    if (end != text && *end == '\0' && value > 0) return static_cast<size_t>(value);
  }
  const long pages = ::sysconf(_SC_PHYS_PAGES), pageSize = ::sysconf(_SC_PAGESIZE);
  if (pages <= 0 || pageSize <= 0) return size_t(1) << 32;
  return static_cast<size_t>(pages) / 2 * static_cast<size_t>(pageSize);
}

// Inflates every gzip member of `packed`. The output grows with what the stream really holds, up
// to the limit.
bool inflateAll(const unsigned char* packed, size_t packedSize, std::vector<unsigned char>& out, std::string& error) {
  const size_t limit = inflateLimit();
  z_stream z{};
  if (inflateInit2(&z, 15 + 16) != Z_OK) {
    error = "cannot start gzip decompression";
    return false;
  }
  out.assign(std::min(limit, packedSize < (1u << 20) ? size_t(1) << 20 : packedSize * 2), 0);
  size_t produced = 0;
  z.next_in = const_cast<unsigned char*>(packed);
  size_t inputLeft = packedSize;
  int status = Z_OK;
  while (true) {
    if (produced == out.size()) {
      if (produced >= limit) {
        error = "inflates to more than " + std::to_string(limit) + " bytes, the limit (VORN_MAX_PARTICLE_BYTES)";
        inflateEnd(&z);
        return false;
      }
      out.resize(std::min(limit, out.size() * 2));
    }
    const uInt chunkIn = static_cast<uInt>(std::min<size_t>(inputLeft, 1u << 30));
    const uInt chunkOut = static_cast<uInt>(std::min<size_t>(out.size() - produced, 1u << 30));
    z.avail_in = chunkIn;
    z.next_out = out.data() + produced;
    z.avail_out = chunkOut;
    status = inflate(&z, Z_NO_FLUSH);
    const bool moved = z.avail_in != chunkIn || z.avail_out != chunkOut;
    inputLeft -= chunkIn - z.avail_in;
    produced += chunkOut - z.avail_out;
    if (status == Z_STREAM_END) {
      // Another member may follow (concatenated gzip files are one stream).
      if (inputLeft >= 2 && isGzip(z.next_in, inputLeft)) {
        inflateReset(&z);
        continue;
      }
      break;
    }
    if (status == Z_BUF_ERROR && (inputLeft == 0 || (!moved && produced < out.size()))) {
      error = "damaged gzip data (cut short)";
      inflateEnd(&z);
      return false;
    }
    if (status != Z_OK && status != Z_BUF_ERROR) {
      error = std::string("damaged gzip data (") + (z.msg ? z.msg : "inflate failed") + ")";
      inflateEnd(&z);
      return false;
    }
  }
  inflateEnd(&z);
  out.resize(produced);
  out.shrink_to_fit();
  return true;
}

}  // namespace

bool loadFile(const std::string& path, bool inflateGzip, FileBytes& bytes, std::string& error) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat info;
  if (fd < 0 || ::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
    if (fd >= 0) ::close(fd);
    error = "cannot open the file";
    return false;
  }
  // Whatever is there when the reads reach the end counts; a file cut meanwhile reads short.
  std::vector<unsigned char> raw(static_cast<size_t>(info.st_size));
  size_t done = 0;
  while (done < raw.size()) {
    const ssize_t got = ::read(fd, raw.data() + done, raw.size() - done);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      ::close(fd);
      error = "cannot read the file";
      return false;
    }
    if (got == 0) break;
    done += static_cast<size_t>(got);
  }
  ::close(fd);
  raw.resize(done);
  if (inflateGzip && isGzip(raw.data(), raw.size())) return inflateAll(raw.data(), raw.size(), bytes.held, error);
  bytes.held = std::move(raw);
  return true;
}

}  // namespace vrparticles
