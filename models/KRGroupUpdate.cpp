#include "models/KRGroupUpdate.h"

#include "extensions/JSONFields.h"

using koriva::json::Coding;
using koriva::json::Field;
using koriva::json::lenient;
using koriva::json::required;

namespace {

using Update = KRGroupUpdateType;

struct UpdateDocument {
  std::string type;
  std::optional<std::vector<std::string>> addedUins;
  std::optional<std::string> removedUin;
  std::optional<std::string> ownerUin;
  std::optional<std::string> name;
  std::optional<std::string> avatar;

  static const Coding coding;
};

constinit const Coding UpdateDocument::coding =
    lenient<Field<"type", &UpdateDocument::type>, Field<"added_uins", &UpdateDocument::addedUins>,
            Field<"removed_uin", &UpdateDocument::removedUin>,
            Field<"owner_uin", &UpdateDocument::ownerUin>,
            Field<"updated_group_name", &UpdateDocument::name>,
            Field<"updated_group_avatar", &UpdateDocument::avatar>>;

bool readUpdate(UpdateDocument& document, Update& update) {
  if (document.addedUins) {
    update = Update::AddMembers{*std::move(document.addedUins)};
  } else if (document.removedUin) {
    update = Update::RemoveMember{*std::move(document.removedUin)};
  } else if (document.ownerUin) {
    update = Update::ChangeOwner{*std::move(document.ownerUin)};
  } else {
    update = Update::UpdateInfo{document.name.value_or(""), document.avatar.value_or("")};
  }
  return true;
}

bool writeUpdate(const Update& update, std::string& out) {
  UpdateDocument document;
  if (const auto* info = update.as<Update::UpdateInfo>()) {
    document.type = "update_info";
    document.name = info->name;
    document.avatar = info->avatar;
  } else if (const auto* added = update.as<Update::AddMembers>()) {
    document.type = "add_member";
    document.addedUins = added->uins;
  } else if (const auto* removed = update.as<Update::RemoveMember>()) {
    document.type = "remove_member";
    document.removedUin = removed->uin;
  } else if (const auto* owner = update.as<Update::ChangeOwner>()) {
    document.type = "change_owner";
    document.ownerUin = owner->uin;
  }
  return koriva::json::append(out, document);
}

}  // namespace

constinit const Coding KRGroupUpdateType::coding =
    koriva::json::convertedBy<&readUpdate, &writeUpdate>;

constinit const Coding KRGroupUpdate::coding = required<
    Field<"name", &KRGroupUpdate::name>, Field<"avatar_url", &KRGroupUpdate::avatarUrl>,
    Field<"owner_uin", &KRGroupUpdate::ownerUin>, Field<"group_id", &KRGroupUpdate::groupID>,
    Field<"pull_all", &KRGroupUpdate::removedUins>, Field<"push_all", &KRGroupUpdate::addedUins>,
    Field<"blocked_all", &KRGroupUpdate::blockedAll>,
    Field<"unblocked_all", &KRGroupUpdate::unblockedAll>>;
