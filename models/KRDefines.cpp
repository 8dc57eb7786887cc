#include "models/KRDefines.h"

#include "extensions/JSONFields.h"

using namespace koriva::json;

constinit const Coding KRUserStatus::coding =
    required<Field<"uin", &KRUserStatus::uin>, Field<"online_status", &KRUserStatus::onlineStatus>,
             Field<"message_status", &KRUserStatus::messageStatus>>;

constinit const Coding KRUserStatusResponse::coding =
    required<Field<"user_status", &KRUserStatusResponse::userStatus>>;
