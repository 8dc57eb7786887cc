#include "models/KRLoginEvent.h"

#include "extensions/JSONFields.h"

using koriva::json::Coding;
using koriva::json::Field;
using koriva::json::required;

constinit const Coding KRLoginEvent::coding =
    required<Field<"result", &KRLoginEvent::result>, Field<"uin", &KRLoginEvent::uin>>;
