#pragma once
// The library's release number, fixed at build time.

/// "MAJOR.MINOR.PATCH" of this build of the library.
const char* vornLibraryVersion();
