#include "models/KRBlock.h"

#include "extensions/JSONFields.h"

using namespace koriva::json;

constinit const Coding KRBlock::coding =
    required<Field<"group_id", &KRBlock::group_id>, Field<"blocked_uin", &KRBlock::blocked_uin>>;

constinit const Coding KRBlockContact::coding =
    required<Field<"uin", &KRBlockContact::uin>, Field<"group_id", &KRBlockContact::group_id>>;

constinit const Coding KRBlockContactList::coding =
    required<Field<"result", &KRBlockContactList::result>,
             Field<"list", &KRBlockContactList::list>>;
