#pragma once
// Paths: environment expansion, directory helpers and file checks.

#include <string>

namespace vrutil {

/// Stripped text with a '/' added unless it is empty or already ends in '/', '\\' or '}'.
std::string validPath(const std::string& text);

/// True when the stripped text is non-empty and ends in '/' or '\\'.
bool validDirPath(const std::string& text);

/// Length >= 3: true only for "X:\\", "X:/", a leading "\\\\" or a leading "//" (a single leading
/// '/' does not count). Length 1 or 2: true when it starts with '/'. Empty: false.
bool isAbsolutePath(const std::string& text);

/// Expands $NAME and ${NAME} from the environment (a backslash escapes the next character),
/// collapses "dir/.." and removes one pair of surrounding double quotes, in place.
/// False when a variable was missing (it expands to nothing) or a "${" was left open.
bool fileCleanup(std::string& text);

/// fileCleanup, then validPath; returns what fileCleanup returned.
bool pathCleanup(std::string& text);

/// VORN_LOCATION with a trailing '/', fixed at the first call; without it tempDir() (with an
/// Error).
std::string rootDir();

/// First set of TMP, TMPDIR, TEMP, else "/tmp"; forward slashes, cleaned, ending in '/'.
std::string tempDir();

/// rootDir() + "icons/".
std::string iconDir();

/// Version text of the installation: the root behind its first '_', without its last character
/// ("/opt/vorn_2.1/" -> "2.1"); "NOT VERSIONED" for the temp directory or a "/projects/" root.
std::string version();

/// version() for a given root and temp directory; "NOT VERSIONED" also when the root has no '_'.
std::string versionOf(const std::string& root, const std::string& temp);

/// Virtual memory size of this process in bytes, from /proc/<pid>/stat; 0 where unreadable.
unsigned long long memUsage();

/// Creates the directory `path` with all missing parents; with `parentOnly` only the part up to
/// the last separator. True when the directory exists afterwards; otherwise an Error.
bool createDir(const std::string& path, bool parentOnly);

/// True when stat() finds the path; otherwise appends the path and a bracketed reason to `tried`.
bool filepathExists(const std::string& path, std::string& tried);

/// The path in the form the platform's file calls want; unchanged here.
std::string convertPathSeperateToWindows(const std::string& path);

}  // namespace vrutil
