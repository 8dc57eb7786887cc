#pragma once

#include <rapidjson/document.h>
#include <simdjson.h>

#include <boost/json/monotonic_resource.hpp>
#include <boost/json/parse.hpp>
#include <cstddef>
#include <cstdlib>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "extensions/StringRewriters.h"
#include "models/KRConversation.h"

// How the records would be read with other libraries. Each of them parses the text into a document
// and hands out values of it; Reader takes the members of the records from these.

struct Nlohmann {
  using Value = const nlohmann::json*;

  static void parse(std::string_view text, auto use) {
    const auto document = nlohmann::json::parse(text);
    use(&document);
  }
  static Value find(Value object, const char* key) {
    const auto found = object->find(key);
    return found == object->end() ? nullptr : &*found;
  }
  static void text(Value value, std::string& out) { value->get_to(out); }
  static void number(Value value, auto& out) { value->get_to(out); }
  static void boolean(Value value, bool& out) { value->get_to(out); }
  static std::size_t size(Value list) { return list->size(); }
  static void forEach(Value list, auto use) {
    for (const auto& value : *list) use(&value);
  }
  static void forEachMember(Value object, auto use) {
    for (const auto& [key, value] : object->items()) use(std::string_view(key), &value);
  }
};

struct BoostJson {
  using Value = const boost::json::value*;

  static void parse(std::string_view text, auto use) {
    boost::json::monotonic_resource memory;
    const auto document = boost::json::parse(text, &memory);
    use(&document);
  }
  static Value find(Value object, const char* key) { return object->get_object().if_contains(key); }
  static void text(Value value, std::string& out) { out = std::string_view(value->get_string()); }
  template <class Number>
  static void number(Value value, Number& out) {
    out = value->to_number<Number>();
  }
  static void boolean(Value value, bool& out) { out = value->get_bool(); }
  static std::size_t size(Value list) { return list->get_array().size(); }
  static void forEach(Value list, auto use) {
    for (const auto& value : list->get_array()) use(&value);
  }
  static void forEachMember(Value object, auto use) {
    for (const auto& member : object->get_object()) {
      use(std::string_view(member.key()), &member.value());
    }
  }
};

struct RapidJson {
  using Value = const rapidjson::Value*;

  static void parse(std::string_view text, auto use) {
    rapidjson::Document document;
    document.Parse(text.data(), text.size());
    use(&document);
  }
  static Value find(Value object, const char* key) {
    const auto found = object->FindMember(key);
    return found == object->MemberEnd() ? nullptr : &found->value;
  }
  static std::string_view view(const rapidjson::Value& value) {
    return {value.GetString(), value.GetStringLength()};
  }
  static void text(Value value, std::string& out) { out = view(*value); }
  template <class Number>
  static void number(Value value, Number& out) {
    out = value->Get<Number>();
  }
  static void number(Value value, double& out) { out = value->GetDouble(); }
  static void boolean(Value value, bool& out) { out = value->GetBool(); }
  static std::size_t size(Value list) { return list->Size(); }
  static void forEach(Value list, auto use) {
    for (const auto& value : list->GetArray()) use(&value);
  }
  static void forEachMember(Value object, auto use) {
    for (const auto& member : object->GetObject()) use(view(member.name), &member.value);
  }
};

struct Simdjson {
  using Value = std::optional<simdjson::dom::element>;

  /// A parser keeps its memory; documents within documents need one each.
  static void parse(std::string_view text, auto use) {
    static std::vector<std::unique_ptr<simdjson::dom::parser>> parsers;
    static std::size_t depth = 0;
    if (parsers.size() == depth) {
      parsers.push_back(std::make_unique<simdjson::dom::parser>());
    }
    const Value document = parsers[depth++]->parse(text.data(), text.size()).value();
    use(document);
    --depth;
  }
  static Value find(const Value& object, const char* key) {
    simdjson::dom::element found;
    if (object->at_key(key).get(found) != simdjson::SUCCESS) return std::nullopt;
    return found;
  }
  static void text(const Value& value, std::string& out) {
    out = value->get_string().value_unsafe();
  }
  template <class Number>
  static void number(const Value& value, Number& out) {
    out = value->get<Number>().value();
  }
  static void boolean(const Value& value, bool& out) { out = value->get_bool().value(); }
  static std::size_t size(const Value& list) { return list->get_array().value().size(); }
  static void forEach(const Value& list, auto use) {
    for (const auto value : list->get_array()) use(Value(value));
  }
  static void forEachMember(const Value& object, auto use) {
    for (const auto& [key, value] : object->get_object()) use(key, Value(value));
  }
};

/// Reads records of the benchmarks' samples, without the leniency and the checks of the real thing.
template <class Library>
class Reader {
 public:
  template <class Record>
  static Record decode(std::string_view json) {
    Record record;
    Library::parse(json, [&](const Value& document) { put(document, record); });
    return record;
  }

 private:
  using Value = typename Library::Value;

  template <class Member>
  static void read(const Value& object, const char* key, Member& member) {
    if (const Value value = Library::find(object, key)) put(value, member);
  }

  static void put(const Value& value, std::string& text) { Library::text(value, text); }
  static void put(const Value& value, bool& flag) { Library::boolean(value, flag); }
  static void put(const Value& value, std::int64_t& number) { Library::number(value, number); }
  static void put(const Value& value, std::uint64_t& number) { Library::number(value, number); }
  static void put(const Value& value, double& number) { Library::number(value, number); }

  template <class T>
  static void put(const Value& value, std::optional<T>& optional) {
    put(value, optional.emplace());
  }

  template <class T>
  static void put(const Value& value, std::vector<T>& list) {
    list.reserve(Library::size(value));
    Library::forEach(value, [&](const Value& element) { put(element, list.emplace_back()); });
  }

  static void put(const Value& value, std::map<std::string, std::string>& map) {
    Library::forEachMember(
        value, [&](std::string_view key, const Value& text) { put(text, map[std::string(key)]); });
  }

  static void put(const Value& json, KRImage& image) {
    read(json, "url", image.url);
    read(json, "width", image.width);
    read(json, "height", image.height);
    read(json, "sub_index", image.subIndex);
  }

  static void put(const Value& json, KRImageResponse& document) {
    read(json, "images", document.images);
  }

  static void put(const Value& json, KRFile& file) {
    read(json, "url", file.url);
    read(json, "size", file.size);
    read(json, "file_name", file.fileName);
    read(json, "file_extension", file.fileExtension);
  }

  static void put(const Value& json, KRFileResponse& document) {
    read(json, "file", document.file);
  }

  static void put(const Value& json, KRMessage& message) {
    read(json, "send_uin", message.send_uin);
    read(json, "recv_uin", message.recv_uin);
    read(json, "group_avatar", message.groupAvatar);
    read(json, "sender_name", message.senderName);
    read(json, "sender_avatar", message.senderAvatar);
    read(json, "group_id", message.groupID);
    read(json, "status", message.status);
    read(json, "seen_uins", message.seenUins);
    read(json, "received_uins", message.receivedUins);
    read(json, "message_id", message.messageID);
    read(json, "created_at", message.createdAt);
    read(json, "sender_uin", message.senderUin);
    read(json, "message", message.message);
    read(json, "recipient_uins", message.recipientUins);
    read(json, "updated_at", message.updatedAt);
    read(json, "deleted_uins", message.deletedUins);
    read(json, "group_name", message.groupName);
    read(json, "type", message.type);
    read(json, "attachments", message.attachments);
    read(json, "version", message.version);
    read(json, "is_encrypted", message.isEncrypted);
    message.kind = kindOf(message);
    const double time = std::strtod(message.createdAt.c_str(), nullptr);
    if (time < 1e10) {
      message.createdAt = std::to_string(static_cast<std::int64_t>(time) * 1'000'000) + ".0";
    }
  }

  static KRMessageKind kindOf(const KRMessage& message) {
    switch (message.messageType()) {
      case KRMessageType::images:
        return KRMessageKind::Images{decode<KRImageResponse>(message.attachments).images};
      case KRMessageType::file:
        return KRMessageKind::File{decode<KRFileResponse>(message.attachments).file};
      case KRMessageType::reply:
        return KRMessageKind::Reply{message.message, decode<KRMessage>(message.attachments)};
      default:
        return KRMessageKind::Text{koriva::unescapeString(message.message)};
    }
  }

  static void put(const Value& json, KRMessageList& list) {
    read(json, "group_id", list.groupID);
    read(json, "result", list.result);
    read(json, "psize", list.pageSize);
    read(json, "pindex", list.page);
    read(json, "last_message_id", list.lastMessageID);
    read(json, "messages", list.messages);
  }

  static void put(const Value& json, KRLastActiveMessage& last) {
    read(json, "uin", last.uin);
    read(json, "message_id", last.messageId);
  }

  static void put(const Value& json, KRConversation& group) {
    read(json, "occupants_uins", group.occupantsUins);
    read(json, "blocked_uins", group.blockedUins);
    read(json, "muted_uins", group.mutedUins);
    read(json, "received_list", group.receivedList);
    read(json, "seen_list", group.seenList);
    read(json, "group_id", group.groupID);
    read(json, "created_at", group.createdAt);
    read(json, "last_message_id", group.lastMessageID);
    read(json, "avatar_url", group.avatarUrl);
    read(json, "type", group.type);
    read(json, "updated_at", group.updatedAt);
    read(json, "name", group.name);
    read(json, "owner_uin", group.ownerUin);
    read(json, "creator_uin", group.creatorUin);
    read(json, "removed_uins", group.removedUins);
    read(json, "last_message", group.lastMessage);
    read(json, "pinned_uins", group.pinnedUins);
    read(json, "last_active_messages", group.lastActiveMessages);
  }

  static void put(const Value& json, KRConversationList& list) {
    read(json, "result", list.result);
    read(json, "psize", list.pageSize);
    read(json, "pindex", list.page);
    read(json, "groups", list.conversations);
  }
};
