#pragma once
// The message channel every part of the library writes to. A message is a 32-bit flags word
// (kind in the top byte, debug category in bits 4..23, detail level in the low four bits) plus a
// text, delivered to the loggers of `vrutil::msg`. Level and filter tests stand at the call site
// (the VR_* macros below) so that a suppressed message never builds its string.
// Messages may be sent from any thread; loggers are installed and removed on the main thread.

#include <string>

/// @name Process-wide message settings, read and written directly by the host.
/// @{
extern unsigned VRWarningLevel;   ///< warnings up to this detail level are sent (default 2)
extern unsigned VRDebugLevel;     ///< debug messages up to this level are sent (default 0)
extern unsigned VRStatsLevel;     ///< stats messages up to this level are sent (default 0)
extern bool VRQuitOnError;        ///< an Error through the shell logger ends the process
extern unsigned VRMessageFilter;  ///< debug category filter; 0xFFFFFFF0 lets every category pass
extern unsigned VRImportFileVersion;        ///< collection file version being read (default 18)
extern unsigned VRLowestImportFileVersion;  ///< lowest version among the files of one import
/// @}

namespace vrmsg {
/// Kinds, the top byte of the flags word.
constexpr unsigned Error = 0x1000000;
constexpr unsigned Warning = 0x2000000;
constexpr unsigned Stats = 0x4000000;
constexpr unsigned Debug = 0x8000000;
constexpr unsigned KindMask = 0xFF000000;
constexpr unsigned LevelMask = 0xF;

/// Debug categories; each mask includes bit 0x10000.
constexpr unsigned CatRender = 0x10010;
constexpr unsigned CatGenerator = 0x10020;
constexpr unsigned CatPrimitive = 0x10040;
constexpr unsigned CatCollection = 0x10080;
constexpr unsigned CatDescription = 0x10100;
constexpr unsigned CatPatch = 0x10200;
constexpr unsigned CatExpression = 0x10800;
constexpr unsigned CatFXModule = 0x11000;
constexpr unsigned CatFile = 0x12000;

constexpr unsigned FilterAll = 0xFFFFFFF0;

/// True when a debug message of this category mask passes `VRMessageFilter`.
inline bool filterPasses(unsigned categoryMask) {
  return VRMessageFilter == FilterAll || (VRMessageFilter & categoryMask) == categoryMask;
}
}  // namespace vrmsg

/// Delivers one message to the installed loggers; creates the shell logger on first use.
/// `file` may be "" and `line` 0. Always returns 1.
int vrmessage(unsigned flags, const char* file, int line, const std::string& text);

/// Localised text of a message key from the logger named "orlo"; empty when there is none.
std::string vrLocName(const std::string& key, const std::string& a1 = "", const std::string& a2 = "",
                      const std::string& a3 = "", const std::string& a4 = "",
                      const std::string& a5 = "", const std::string& a6 = "",
                      const std::string& a7 = "", const std::string& a8 = "",
                      const std::string& a9 = "", const std::string& a10 = "");

namespace vrutil {

/// A message sink. The base class is the shell logger: it writes coloured lines to standard
/// error. A host logger derives from it and overrides every operation.
class VrMessage {
 public:
  virtual ~VrMessage() = default;
  virtual void log(unsigned flags, const char* file, int line, const std::string& text);
  virtual std::string typeName() const { return "shell"; }
  virtual std::string getLocalized(const std::string& key, const std::string& a1,
                                   const std::string& a2, const std::string& a3,
                                   const std::string& a4, const std::string& a5,
                                   const std::string& a6, const std::string& a7,
                                   const std::string& a8, const std::string& a9,
                                   const std::string& a10) const;

  /// The line the shell logger writes for a message, without the quit-on-error tail.
  /// `timeText` is the local time as "%H:%M:%S"; `colour` wraps the line in the terminal's
  /// colour codes of its kind.
  static std::string formatLine(unsigned flags, const char* file, int line,
                                const std::string& text, const std::string& timeText, bool colour = true);
  /// Whether the shell logger colours its lines: only on a terminal, and never while NO_COLOR
  /// is set to a non-empty value.
  static bool colourOnStandardError();
};

/// The logger table. It owns only the shell logger it makes itself.
namespace msg {
/// Installs a logger under its `typeName`; a name already present keeps the old logger, except
/// "qt", which is replaced. A null argument only makes sure the shell logger exists.
void addLogger(VrMessage* logger);
/// Removes the entry under the logger's `typeName`; destroys nothing it did not make.
void eraseLogger(VrMessage* logger);
/// Empties the table (the shell logger is made again by the next message).
void clearLogger();
/// Number of loggers in the table.
unsigned numLoggers();
}  // namespace msg

}  // namespace vrutil

// Call-site gates: the text expression is evaluated only when the message will be sent.
#define VR_ERROR(text) vrmessage(vrmsg::Error, "", 0, (text))
#define VR_ERROR_AT(text) vrmessage(vrmsg::Error, __FILE__, __LINE__, (text))
#define VR_WARNING(level, text)                                      \
  do {                                                               \
    if (VRWarningLevel >= (level))                                   \
      vrmessage(vrmsg::Warning | (level), "", 0, (text));            \
  } while (0)
#define VR_STATS(level, text)                                        \
  do {                                                               \
    if (VRStatsLevel >= (level))                                     \
      vrmessage(vrmsg::Stats | (level), "", 0, (text));              \
  } while (0)
#define VR_DEBUG(level, category, text)                                          \
  do {                                                                           \
    if (VRDebugLevel >= (level) && vrmsg::filterPasses(category))                \
      vrmessage(vrmsg::Debug | (category) | (level), "", 0, (text));             \
  } while (0)
