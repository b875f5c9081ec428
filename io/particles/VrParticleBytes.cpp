// Loading particle files into memory, inflating gzip-compressed ones.

#include "io/particles/VrParticleBytes.h"

#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <sys/stat.h>

namespace vrparticles {

bool isGzip(const unsigned char* bytes, size_t size) { return size >= 2 && bytes[0] == 0x1f && bytes[1] == 0x8b; }

std::string fileName(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

namespace {

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};

// Inflates every gzip member of `packed`. The output grows with what the stream really holds.
bool inflateAll(const std::vector<unsigned char>& packed, std::vector<unsigned char>& out, std::string& error) {
  z_stream z{};
  if (inflateInit2(&z, 15 + 16) != Z_OK) {
    error = "cannot start gzip decompression";
    return false;
  }
  out.assign(packed.size() < (1u << 20) ? (1u << 20) : packed.size() * 2, 0);
  size_t produced = 0;
  z.next_in = const_cast<unsigned char*>(packed.data());
  size_t inputLeft = packed.size();
  int status = Z_OK;
  while (true) {
    if (produced == out.size()) out.resize(out.size() * 2);
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

bool loadFile(const std::string& path, bool inflateGzip, std::vector<unsigned char>& bytes, std::string& error) {
  struct stat info;
  if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
    error = "cannot open the file";
    return false;
  }
  std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
  if (!file) {
    error = "cannot open the file";
    return false;
  }
  std::vector<unsigned char> raw(static_cast<size_t>(info.st_size));
  if (!raw.empty() && std::fread(raw.data(), 1, raw.size(), file.get()) != raw.size()) {
    error = "cannot read the file";
    return false;
  }
  if (inflateGzip && isGzip(raw.data(), raw.size())) return inflateAll(raw, bytes, error);
  bytes = std::move(raw);
  return true;
}

}  // namespace vrparticles
