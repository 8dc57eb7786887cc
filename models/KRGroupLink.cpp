#include "models/KRGroupLink.h"

#include "extensions/JSONFields.h"

using namespace koriva::json;

constinit const Coding KRGroupLinkResponse::coding =
    required<Field<"result", &KRGroupLinkResponse::result>,
             Field<"link", &KRGroupLinkResponse::link>>;

constinit const Coding KRListGroupLinkResponse::coding =
    required<Field<"result", &KRListGroupLinkResponse::result>,
             Field<"links", &KRListGroupLinkResponse::links>>;
