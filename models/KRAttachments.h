#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "extensions/JSONCoding.h"
#include "extensions/KRExport.h"

/// One picture. A decoded image always has its sizes (0 when the server sent none); one built from
/// a bare URL lacks them.
struct KRImage {
  std::string url;                        ///< where the picture is
  std::optional<std::uint64_t> width;     ///< pixels
  std::optional<std::uint64_t> height;    ///< pixels
  std::optional<std::uint64_t> subIndex;  ///< its place among the images of the message

  bool operator==(const KRImage&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// One video. All keys are required.
struct KRVideo {
  std::string url;             ///< where the video is
  std::string thumbnailUrl;    ///< where its preview picture is
  std::uint64_t duration = 0;  ///< its length, in the sender's unit
  std::uint64_t width = 0;     ///< pixels
  std::uint64_t height = 0;    ///< pixels

  bool operator==(const KRVideo&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// One audio clip. All keys are required.
struct KRAudio {
  std::string url;             ///< where the clip is
  std::uint64_t duration = 0;  ///< its length, in the sender's unit

  bool operator==(const KRAudio&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// One file of any kind. All keys are required.
struct KRFile {
  std::string url;            ///< where the file is
  std::string fileName;       ///< its name
  std::string fileExtension;  ///< its extension
  double size = 0;            ///< its size, in the sender's unit

  /// The record as JSON text; empty when it cannot be written. It is no message's attachments:
  /// those of a file message are a `KRFileResponse`.
  KR_EXPORT std::string toString() const;

  bool operator==(const KRFile&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// One sticker. The key is required.
struct KRSticker {
  std::string sticker;  ///< the sticker, by name or address

  bool operator==(const KRSticker&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// The attachments document of an image message of any version but 0.
struct KRImageResponse {
  std::vector<KRImage> images;  ///< the pictures; empty when they cannot be read

  bool operator==(const KRImageResponse&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// The attachments document of an image message of version 0: bare URLs under the same key.
struct KRImageURLsResponse {
  std::vector<std::string> urls;  ///< where the pictures are; empty when they cannot be read

  bool operator==(const KRImageURLsResponse&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// The attachments document of a video message.
struct KRVideoResponse {
  KRVideo video;  ///< the video

  bool operator==(const KRVideoResponse&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// The attachments document of an audio message.
struct KRAudioResponse {
  KRAudio audio;  ///< the clip

  bool operator==(const KRAudioResponse&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// The attachments document of a file message.
struct KRFileResponse {
  KRFile file;  ///< the file

  bool operator==(const KRFileResponse&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// A document that wraps a sticker. Sticker messages carry the bare `KRSticker` instead.
struct KRStickerResponse {
  KRSticker sticker;  ///< the sticker

  bool operator==(const KRStickerResponse&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};
