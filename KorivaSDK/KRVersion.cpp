#include "KorivaSDK/KRVersion.h"

const double KorivaSDKVersionNumber = KORIVA_VERSION_NUMBER;
const char* const KorivaSDKVersionString = KORIVA_VERSION_STRING;
