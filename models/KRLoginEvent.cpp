#include "models/KRLoginEvent.h"

#include "extensions/JSONFields.h"

using namespace koriva::json;

constinit const Coding KRLoginEvent::coding =
    required<Field<"result", &KRLoginEvent::result>, Field<"uin", &KRLoginEvent::uin>>;
