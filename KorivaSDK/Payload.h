#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include "extensions/JSONEncoder.h"
#include "extensions/JSONFields.h"
#include "socketio/Frame.h"

namespace koriva {

/// The JSON object that a request carries, such as `{{"group_id", groupID}, {"status", status}}`.
/// It is written while it is made.
class Payload {
 public:
  /// A key, which needs no escapes, and a value of any type that a record's field may have.
  class Member {
   public:
    template <class T>
    Member(std::string_view key, const T& value)
        : key_(key), value_(&value), append_([](std::string& out, const void* from) {
            return json::appendValue(out, *static_cast<const T*>(from));
          }) {}

   private:
    friend class Payload;
    std::string_view key_;
    const void* value_;
    bool (*append_)(std::string& out, const void* from);
  };

  Payload(std::initializer_list<Member> members) {
    text_.reserve(768);
    text_.append(headRoom, ' ') += '{';
    for (const Member& member : members) add(member);
  }

  /// Members that JSON cannot say make an empty object.
  Payload(const KRDictionary& dictionary) {
    text_.append(headRoom, ' ');
    if (!json::write(text_, dictionary, json::InvalidText::replace)) text_ += "{}";
    text_.pop_back();
  }

  void add(const Member& member) {
    if (text_.back() != '{') text_ += ',';
    text_.append(1, '"').append(member.key_).append("\":");
    if (!member.append_(text_, member.value_)) text_ += "null";
  }

  /// The whole object.
  socketio::Frame frame() && { return {std::move(text_) + '}', headRoom}; }

 private:
  static constexpr std::size_t headRoom = socketio::Frame::headRoom;

  std::string text_;  ///< behind the room, without the closing brace
};

}  // namespace koriva
