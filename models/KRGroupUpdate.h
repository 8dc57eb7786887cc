#pragma once

#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "extensions/JSONFields.h"
#include "extensions/KRExport.h"
#include "models/TaggedVariant.h"

/// \file
/// Changes of a group.

/// The changed settings of a group, pushed as "update_group". All keys are required.
struct KRGroupUpdate {
  std::string name;                       ///< the group's name
  std::string avatarUrl;                  ///< where its picture is
  std::string ownerUin;                   ///< its owner
  std::string groupID;                    ///< the conversation
  std::vector<std::string> removedUins;   ///< who was removed, under "pull_all"
  std::vector<std::string> addedUins;     ///< who was added, under "push_all"
  std::vector<std::string> blockedAll;    ///< who was blocked
  std::vector<std::string> unblockedAll;  ///< who was unblocked

  bool operator==(const KRGroupUpdate&) const = default;

  /// The JSON keys.
  template <class R>
  static constexpr auto fields = koriva::json::fields(
      koriva::json::required<&R::name>("name"), koriva::json::required<&R::avatarUrl>("avatar_url"),
      koriva::json::required<&R::ownerUin>("owner_uin"),
      koriva::json::required<&R::groupID>("group_id"),
      koriva::json::required<&R::removedUins>("pull_all"),
      koriva::json::required<&R::addedUins>("push_all"),
      koriva::json::required<&R::blockedAll>("blocked_all"),
      koriva::json::required<&R::unblockedAll>("unblocked_all"));
};

/// What a message of type `groupUpdate` tells: the attachments document of such a message.
struct KR_EXPORT KRGroupUpdateType : koriva::TaggedVariant<KRGroupUpdateType> {
  /// The group has another name or picture.
  struct UpdateInfo {
    std::string name;    ///< the new name
    std::string avatar;  ///< where the new picture is
    bool operator==(const UpdateInfo&) const = default;
  };
  /// Members joined.
  struct AddMembers {
    std::vector<std::string> uins;  ///< who joined
    bool operator==(const AddMembers&) const = default;
  };
  /// A member was removed.
  struct RemoveMember {
    std::string uin;  ///< who was removed
    bool operator==(const RemoveMember&) const = default;
  };
  /// The group has another owner.
  struct ChangeOwner {
    std::string uin;  ///< the new owner
    bool operator==(const ChangeOwner&) const = default;
  };
  /// The cases.
  using Cases = std::variant<UpdateInfo, AddMembers, RemoveMember, ChangeOwner>;

  Cases value;  ///< the case held

  KRGroupUpdateType() = default;

  /// Holds one of the cases.
  template <koriva::CaseOf<Cases> Case>
  KRGroupUpdateType(Case chosen) : value(std::move(chosen)) {}

  bool operator==(const KRGroupUpdateType&) const = default;

 private:
  friend struct koriva::json::Access;

  struct Document {
    std::string type;
    std::optional<std::vector<std::string>> addedUins;
    std::optional<std::string> removedUin;
    std::optional<std::string> ownerUin;
    std::optional<std::string> name;
    std::optional<std::string> avatar;

    template <class R>
    static constexpr auto fields = koriva::json::fields(
        koriva::json::lenient<&R::type>("type"), koriva::json::lenient<&R::addedUins>("added_uins"),
        koriva::json::lenient<&R::removedUin>("removed_uin"),
        koriva::json::lenient<&R::ownerUin>("owner_uin"),
        koriva::json::lenient<&R::name>("updated_group_name"),
        koriva::json::lenient<&R::avatar>("updated_group_avatar"));
  };

  static std::optional<KRGroupUpdateType> fromDocument(const Document& document);
  static bool writeJson(const KRGroupUpdateType& update, std::string& out);
};
