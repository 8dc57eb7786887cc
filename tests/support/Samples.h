#pragma once

#include <string>

/// Records in the form in which the library writes them: what comes back equal was read whole.
namespace koriva::test::samples {

// clang-format off
inline const std::string message =
    R"({"group_avatar":"ga","sender_name":"n","sender_avatar":"sa","group_id":"g1","status":3,)"
    R"("seen_uins":["1"],"received_uins":["1","2"],"message_id":"m1",)"
    R"("created_at":"1600000000000000","sender_uin":"1001","message":"hi 😀","recipient_uins":["2"],)"
    R"("deleted_uins":["9"],"group_name":"gn","type":0,"attachments":"","version":1,)"
    R"("is_encrypted":true})";

inline const std::string conversation =
    R"({"occupants_uins":["1","2"],"blocked_uins":["3"],"muted_uins":["4"],)"
    R"("received_list":{"1":"m1"},"seen_list":{"2":"m2"},"group_id":"g1","created_at":"11",)"
    R"("last_message_id":"m2","avatar_url":"a","type":2,"updated_at":"12","name":"The group",)"
    R"("owner_uin":"1","creator_uin":"2","removed_uins":["5"],"last_message":)" + message +
    R"(,"status_list":[{"uin":"1","online_status":1,"message_status":"s"}],"pinned_uins":["6"],)"
    R"("secrets":[{"uin":"1","device_id":"d","identity_key":"i","base_key":"b",)"
    R"("one_time_pre_key":"o"}],"last_active_messages":[{"uin":"1","message_id":"m2"}]})";

inline const std::string call =
    R"({"call_id":"c1","group_id":"g1","call_type":1,"media_type":2,"call_status":1,)"
    R"("caller_uin":"1","callee_uins":["2"],"accepted_uins":["2"],"started_at":"21",)"
    R"("stopped_at":"22","accepted_at":"23","connected_at":"24"})";
// clang-format on

}  // namespace koriva::test::samples
