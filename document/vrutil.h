#pragma once
// The free helpers of namespace vrutil, by topic.

#include "document/vrutilCodec.h"
#include "document/vrutilFiles.h"
#include "document/vrutilName.h"
#include "document/vrutilObject.h"
#include "document/vrutilPath.h"
#include "document/vrutilString.h"
