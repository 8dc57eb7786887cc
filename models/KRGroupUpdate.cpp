#include "models/KRGroupUpdate.h"

#include "extensions/JSONCoding.h"

std::optional<KRGroupUpdateType> KRGroupUpdateType::fromDocument(const Document& document) {
  if (document.addedUins) return AddMembers{*document.addedUins};
  if (document.removedUin) return RemoveMember{*document.removedUin};
  if (document.ownerUin) return ChangeOwner{*document.ownerUin};
  return UpdateInfo{document.name.value_or(""), document.avatar.value_or("")};
}

bool KRGroupUpdateType::writeJson(const KRGroupUpdateType& update, std::string& out) {
  Document document;
  if (const auto* info = update.as<UpdateInfo>()) {
    document.type = "update_info";
    document.name = info->name;
    document.avatar = info->avatar;
  } else if (const auto* added = update.as<AddMembers>()) {
    document.type = "add_member";
    document.addedUins = added->uins;
  } else if (const auto* removed = update.as<RemoveMember>()) {
    document.type = "remove_member";
    document.removedUin = removed->uin;
  } else if (const auto* owner = update.as<ChangeOwner>()) {
    document.type = "change_owner";
    document.ownerUin = owner->uin;
  }
  return koriva::json::append(out, document);
}
