#pragma once

#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "extensions/JSONCoding.h"
#include "extensions/KRExport.h"
#include "models/TaggedVariant.h"

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
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
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
  static const koriva::json::Coding coding;  ///< how it travels as JSON
};
