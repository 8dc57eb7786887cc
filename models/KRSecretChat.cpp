#include "models/KRSecretChat.h"

#include "extensions/JSONFields.h"

using namespace koriva::json;

constinit const Coding KRSecretChat::coding =
    required<Field<"uin", &KRSecretChat::uin>, Field<"device_id", &KRSecretChat::device_id>,
             Field<"identity_key", &KRSecretChat::identity_key>,
             Field<"base_key", &KRSecretChat::base_key>,
             Field<"one_time_pre_key", &KRSecretChat::one_time_pre_key>>;

constinit const Coding KRStartSecretChat::coding =
    required<Field<"group_id", &KRStartSecretChat::group_id>, Field<"uin", &KRStartSecretChat::uin>,
             Field<"device_id", &KRStartSecretChat::device_id>,
             Field<"identity_key", &KRStartSecretChat::identity_key>,
             Field<"base_key", &KRStartSecretChat::base_key>,
             Field<"one_time_pre_key", &KRStartSecretChat::one_time_pre_key>>;

constinit const Coding KRAcceptSecretChat::coding =
    required<Field<"group_id", &KRAcceptSecretChat::group_id>,
             Field<"uin", &KRAcceptSecretChat::uin>,
             Field<"device_id", &KRAcceptSecretChat::device_id>,
             Field<"identity_key", &KRAcceptSecretChat::identity_key>,
             Field<"base_key", &KRAcceptSecretChat::base_key>,
             Field<"one_time_pre_key", &KRAcceptSecretChat::one_time_pre_key>>;

constinit const Coding KRDeleteSecretChat::coding =
    required<Field<"group_id", &KRDeleteSecretChat::group_id>,
             Field<"group_name", &KRDeleteSecretChat::group_name>,
             Field<"group_avatar", &KRDeleteSecretChat::group_avatar>>;
