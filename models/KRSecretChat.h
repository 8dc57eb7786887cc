#pragma once

#include <string>

#include "extensions/JSONCoding.h"
#include "extensions/KRExport.h"

/// One party's public key bundle. The texts are the application's own and pass through untouched.
/// All keys are required.
struct KRSecretChat {
  std::string uin;               ///< the user
  std::string device_id;         ///< the device that the keys belong to
  std::string identity_key;      ///< the long-term identity key
  std::string base_key;          ///< the base (ephemeral) key
  std::string one_time_pre_key;  ///< the one-time pre-key

  bool operator==(const KRSecretChat&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// A secret chat was started. All keys are required.
struct KRStartSecretChat {
  std::string group_id;          ///< the conversation
  std::string uin;               ///< who starts it
  std::string device_id;         ///< that user's device
  std::string identity_key;      ///< that user's identity key
  std::string base_key;          ///< that user's base key
  std::string one_time_pre_key;  ///< that user's one-time pre-key

  bool operator==(const KRStartSecretChat&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// A secret chat was accepted. All keys are required.
struct KRAcceptSecretChat {
  std::string group_id;          ///< the conversation
  std::string uin;               ///< who accepts
  std::string device_id;         ///< that user's device
  std::string identity_key;      ///< that user's identity key
  std::string base_key;          ///< that user's base key
  std::string one_time_pre_key;  ///< that user's one-time pre-key

  bool operator==(const KRAcceptSecretChat&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// A secret chat was deleted. All keys are required.
struct KRDeleteSecretChat {
  std::string group_id;      ///< the conversation
  std::string group_name;    ///< its name
  std::string group_avatar;  ///< where its picture is

  bool operator==(const KRDeleteSecretChat&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};
