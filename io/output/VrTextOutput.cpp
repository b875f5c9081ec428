#include "io/output/VrTextOutput.h"

#include "base/vrutilPieces.h"

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
  file->write(bytes.data(), bytes.size());
  file->writeBehind();
  return file->ok() || fail("cannot be written");
}

// Without a render's workers: the run is encoded here, in chunks on `settings.threads` workers,
// and stored chunk after chunk.
bool VrTextOutput::write(const std::string& patch, const VrOutputPrimitive* primitives, size_t count) {
  if (!file) return false;
  constexpr size_t chunk = 64;
  if (!arena) {
    int workers = settings.threads;
    if (workers <= 0) workers = tbb::task_arena::automatic;  // read by value: the constant has no definition to bind to
    arena = std::make_unique<tbb::task_arena>(workers);
  }
  auto size = [&](size_t c) { return std::min(chunk, count - c * chunk); };
  bool stored = false;
  arena->execute([&] {
    stored = vrutil::makeAndStoreInOrder(
        (count + chunk - 1) / chunk,
        [&](size_t c, std::string& text) { encode(patch, primitives + c * chunk, size(c), text); },
        [&](size_t c, const std::string& text) { return writeEncoded(patch, primitives + c * chunk, size(c), text); },
        chunkTexts);
  });
  return stored;
}

bool VrTextOutput::end() {
  const bool ok = file && file->commit();
  file.reset();
  return ok || fail("cannot be written");
}
