#include "document/VrVersion.h"

const char* vornLibraryVersion() { return VORN_VERSION_STRING; }
