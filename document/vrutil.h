#pragma once
// The free helpers of namespace vrutil, by topic.

#include "base/vrutilCodec.h"
#include "base/vrutilName.h"
#include "base/vrutilPath.h"
#include "base/vrutilString.h"
#include "document/vrutilFiles.h"
#include "document/vrutilObject.h"
