#include "io/output/VrTextOutput.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <locale>

bool VrTextOutput::begin() {
  file = std::make_unique<VrAtomicFile>(path);
  if (!file->ok()) return fail("cannot be written");
  file->out().imbue(std::locale::classic());
  file->out() << header();
  return true;
}

void VrTextOutput::encode(const std::string& patch, const VrOutputPrimitive* primitives, size_t count,
                          std::string& bytes) const {
  const std::string run = runText(patch);
  for (size_t i = 0; i < count; ++i) appendText(run, primitives[i], bytes);
}

bool VrTextOutput::writeEncoded(const std::string&, const VrOutputPrimitive*, size_t, const std::string& bytes) {
  if (!file) return false;
  file->out().write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file->writeBehind();
  return file->ok() || fail("cannot be written");
}

// Without a render's workers: the run is encoded here, in chunks on `settings.threads` workers,
// and stored chunk after chunk.
bool VrTextOutput::write(const std::string& patch, const VrOutputPrimitive* primitives, size_t count) {
  if (!file) return false;
  constexpr size_t chunk = 64;
  const size_t chunks = (count + chunk - 1) / chunk;
  chunkTexts.resize(std::max(chunkTexts.size(), chunks));
  auto makeChunk = [&](size_t c) {
    chunkTexts[c].clear();
    encode(patch, primitives + c * chunk, std::min(chunk, count - c * chunk), chunkTexts[c]);
  };
  if (settings.threads == 1 || chunks < 2) {
    for (size_t c = 0; c < chunks; ++c) makeChunk(c);
  } else {
    if (!arena) {
      int workers = settings.threads;
      if (workers <= 0) workers = tbb::task_arena::automatic;  // read by value: the constant has no definition to bind to
      arena = std::make_unique<tbb::task_arena>(workers);
    }
    arena->execute([&] { tbb::parallel_for(size_t(0), chunks, makeChunk); });
  }
  for (size_t c = 0; c < chunks; ++c)
    if (!writeEncoded(patch, primitives + c * chunk, std::min(chunk, count - c * chunk), chunkTexts[c])) return false;
  return true;
}

bool VrTextOutput::end() {
  const bool ok = file && file->commit();
  file.reset();
  return ok || fail("cannot be written");
}
