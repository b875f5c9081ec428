// Damaged collection files: the reader either gives back a whole collection, which must then
// write out and read back, or gives back nothing with at least one Error. The damage is random
// but seeded, so every run reads the same texts.

#include "base/VrMessage.h"
#include "base/vrutilString.h"
#include "document/VrCollectionFile.h"
#include "document/VrPalette.h"
#include "support/CaptureLogger.h"

#include "support/Examples.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

using vrtest::readText;

// Control characters, backslashes and bytes above 126 as escapes, for failure reports.
std::string printable(const std::string& text) { return vrutil::escapeForDump(text, false); }

struct Mutant {
  std::string what;  ///< how it was made, enough to make it again by hand
  std::string text;
};

// Makes damaged copies of one text. Only mt19937's raw output is used, which the standard fixes,
// so the copies are the same with every standard library.
class Mutator {
 public:
  explicit Mutator(const std::string& text) : original(text) {
    size_t start = 0;
    while (start < text.size()) {
      const size_t end = text.find('\n', start);
      const size_t next = end == std::string::npos ? text.size() : end + 1;
      lines.push_back(text.substr(start, next - start));
      start = next;
    }
  }

  Mutant truncated() {
    const size_t at = below(original.size());
    return {"cut at byte " + std::to_string(at) + " after \"" +
                printable(original.substr(at >= 40 ? at - 40 : 0, at >= 40 ? 40 : at)) + "\"",
            original.substr(0, at)};
  }

  Mutant flipped() {
    Mutant m{"bits flipped:", original};
    for (size_t n = 1 + below(3); n > 0; --n) {
      const size_t at = below(m.text.size());
      m.text[at] = static_cast<char>(m.text[at] ^ (1 << below(8)));
      m.what += " byte " + std::to_string(at) + " to '" + printable(m.text.substr(at, 1)) + "'";
    }
    return m;
  }

  Mutant replaced() {
    Mutant m{"bytes replaced:", original};
    for (size_t n = 1 + below(3); n > 0; --n) {
      const size_t at = below(m.text.size());
      m.text[at] = static_cast<char>(' ' + below(95));
      m.what += " byte " + std::to_string(at) + " to '" + m.text.substr(at, 1) + "'";
    }
    return m;
  }

  Mutant swapped() {
    std::vector<std::string> copy = lines;
    const size_t a = below(copy.size()), b = below(copy.size());
    std::swap(copy[a], copy[b]);
    return {"lines " + std::to_string(a + 1) + " and " + std::to_string(b + 1) + " swapped", join(copy)};
  }

  Mutant duplicated() {
    std::vector<std::string> copy = lines;
    const size_t from = below(copy.size()), to = below(copy.size() + 1);
    copy.insert(copy.begin() + static_cast<long>(to), lines[from]);
    return {"line " + std::to_string(from + 1) + " \"" + printable(lines[from]) + "\" copied before line " +
                std::to_string(to + 1),
            join(copy)};
  }

  Mutant deleted() {
    std::vector<std::string> copy = lines;
    std::string what = "deleted:";
    for (size_t n = 1 + below(2); n > 0 && !copy.empty(); --n) {
      const size_t at = below(copy.size());
      what += " \"" + printable(copy[at]) + "\"";
      copy.erase(copy.begin() + static_cast<long>(at));
    }
    return {what, join(copy)};
  }

 private:
  size_t below(size_t n) { return n == 0 ? 0 : static_cast<size_t>(rng() % n); }
  static std::string join(const std::vector<std::string>& parts) {
    std::string out;
    for (const std::string& part : parts) out += part;
    return out;
  }

  std::string original;
  std::vector<std::string> lines;
  std::mt19937 rng{12345};
};

// Keeps the reader's process-wide version state from leaking between texts and out of the suite.
class FileVersionGuard {
 public:
  FileVersionGuard() : version(VRImportFileVersion), lowest(VRLowestImportFileVersion) {}
  ~FileVersionGuard() {
    VRImportFileVersion = version;
    VRLowestImportFileVersion = lowest;
  }
  static void reset() {
    VRImportFileVersion = VrCurrentFileVersion;
    VRLowestImportFileVersion = VrCurrentFileVersion;
  }

 private:
  unsigned version, lowest;
};

// Empty when the reader behaved; otherwise what went wrong.
std::string readOne(const std::string& text, vrtest::CaptureLogger& log) {
  log.clear();
  FileVersionGuard::reset();
  std::istringstream in(text);
  VrPalette* palette = VrImport(in, "", 0);
  if (!palette) return log.errors().empty() ? "refused without an Error" : std::string();

  std::ostringstream out;
  const bool written = VrExportPalette(palette, out);
  delete palette;
  if (!written) return "read, but could not be written";

  log.clear();
  FileVersionGuard::reset();
  std::istringstream again(out.str());
  VrPalette* reread = VrImport(again, "", 0);
  if (!reread) {
    const auto errors = log.errors();
    return "read, but its written form does not read back (" +
           (errors.empty() ? std::string("no Error") : errors.front()) + ")";
  }
  delete reread;
  return std::string();
}

// Runs the mutants of one file; the failures, one line each.
std::vector<std::string> mutateFile(const std::string& name, int perKind) {
  const std::string text = readText(vrtest::examplePath(name));
  EXPECT_FALSE(text.empty()) << name;
  if (text.empty()) return {};
  vrtest::CaptureLogger log;
  FileVersionGuard guard;
  Mutator mutator(text);
  std::vector<std::string> failures;
  using Make = Mutant (Mutator::*)();
  const Make kinds[] = {&Mutator::truncated, &Mutator::flipped,    &Mutator::replaced,
                        &Mutator::swapped,   &Mutator::duplicated, &Mutator::deleted};
  for (int round = 0; round < perKind; ++round) {
    for (Make make : kinds) {
      const Mutant mutant = (mutator.*make)();
      const std::string problem = readOne(mutant.text, log);
      if (!problem.empty()) failures.push_back(name + ", " + mutant.what + ": " + problem);
    }
  }
  return failures;
}

std::string report(const std::vector<std::string>& failures) {
  std::string out = std::to_string(failures.size()) + " mutants misbehaved:\n";
  for (size_t i = 0; i < failures.size() && i < 12; ++i) out += "  " + failures[i] + "\n";
  return out;
}

}  // namespace

TEST(CollectionFileMutation, ExamplesSurviveRandomDamage) {
  for (const char* name : {"hairs.vorn", "groom.vorn"}) {
    const auto failures = mutateFile(name, 25);
    EXPECT_TRUE(failures.empty()) << report(failures);
  }
}

// Texts cut short where a block has begun but its reader meets the end of the file: each must
// be refused with an Error, like a cut inside an object block is.
TEST(CollectionFileMutation, CutShortBlocksAreRefusedWithAnError) {
  const std::string head =
      "FileVersion 18\nPalette\n\tname\tp\n\tendAttrs\nDescription\n\tname\td\n\tendAttrs\n"
      "SplinePrimitive\n\tendAttrs\n";
  const std::string texts[] = {
      head + "SplinePrimitive\n\tlength\t1.0\n",
      head + "\tActive",
      head + "\tActive\tSplinePrimitive\nPatches",
      head + "\tActive\tSplinePrimitive\nPatches\td",
      head + "\tActive\tSplinePrimitive\nPatches\td\tmany\nendPatches\n",
      head + "\tActive\tSplinePrimitive\nPatches\td\t0\n",
      head + "\tActive\tSplinePrimitive\nPatches\td\t0\nPatch\tSubd\n\tname\ts\n",
      head + "\tActive\tSplinePrimitive\nPatches\td\t0\nPatch\tSubd\n\tname\ts\nGuides\tSpline\n",
      head + "\tActive\tSplinePrimitive\nPatches\td\t1\nPatch\tSubd\n\tname\ts\nGuides\tSpline\t1\n\tid\t1\n",
      "FileVersion",
      "MapTextures\n",
  };
  vrtest::CaptureLogger log;
  FileVersionGuard guard;
  for (const std::string& text : texts) {
    log.clear();
    FileVersionGuard::reset();
    std::istringstream in(text);
    VrPalette* palette = VrImport(in, "", 0);
    EXPECT_EQ(palette, nullptr) << printable(text);
    delete palette;
    EXPECT_FALSE(log.errors().empty()) << "no Error for: " << printable(text);
  }
}
