#include "base/VrVersion.h"

const char* vornLibraryVersion() { return VORN_VERSION_STRING; }
