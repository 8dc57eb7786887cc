#include "models/KRAttachments.h"

#include "extensions/JSONCoding.h"

std::string KRFile::toString() const { return KRJSONEncoder{}.encode(*this); }
