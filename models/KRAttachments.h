#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "extensions/JSONFields.h"
#include "extensions/KRExport.h"

/// \file
/// What messages have attached.

/// One picture. A decoded image always has its sizes (0 when the server sent none); one built from
/// a bare URL lacks them.
struct KRImage {
  std::string url;                        ///< where the picture is
  std::optional<std::uint64_t> width;     ///< pixels
  std::optional<std::uint64_t> height;    ///< pixels
  std::optional<std::uint64_t> subIndex;  ///< its place among the images of the message

  bool operator==(const KRImage&) const = default;

  /// The JSON keys.
  static constexpr auto fields =
      koriva::json::fields(koriva::json::lenient<&KRImage::url>("url"),
                           koriva::json::lenient<&KRImage::width>("width", 0),
                           koriva::json::lenient<&KRImage::height>("height", 0),
                           koriva::json::lenient<&KRImage::subIndex>("sub_index", 0));
};

/// One video. All keys are required.
struct KRVideo {
  std::string url;             ///< where the video is
  std::string thumbnailUrl;    ///< where its preview picture is
  std::uint64_t duration = 0;  ///< its length, in the sender's unit
  std::uint64_t width = 0;     ///< pixels
  std::uint64_t height = 0;    ///< pixels

  bool operator==(const KRVideo&) const = default;

  /// The JSON keys.
  static constexpr auto fields =
      koriva::json::fields(koriva::json::required<&KRVideo::url>("url"),
                           koriva::json::required<&KRVideo::thumbnailUrl>("thumbnail_url"),
                           koriva::json::required<&KRVideo::duration>("duration"),
                           koriva::json::required<&KRVideo::width>("width"),
                           koriva::json::required<&KRVideo::height>("height"));
};

/// One audio clip. All keys are required.
struct KRAudio {
  std::string url;             ///< where the clip is
  std::uint64_t duration = 0;  ///< its length, in the sender's unit

  bool operator==(const KRAudio&) const = default;

  /// The JSON keys.
  static constexpr auto fields =
      koriva::json::fields(koriva::json::required<&KRAudio::url>("url"),
                           koriva::json::required<&KRAudio::duration>("duration"));
};

/// One file of any kind. All keys are required.
struct KRFile {
  std::string url;            ///< where the file is
  std::string fileName;       ///< its name
  std::string fileExtension;  ///< its extension
  double size = 0;            ///< its size, in the sender's unit

  /// The record as JSON text, ready to be a message's attachments; empty when it cannot be written.
  KR_EXPORT std::string toString() const;

  bool operator==(const KRFile&) const = default;

  /// The JSON keys.
  static constexpr auto fields = koriva::json::fields(
      koriva::json::required<&KRFile::url>("url"), koriva::json::required<&KRFile::size>("size"),
      koriva::json::required<&KRFile::fileName>("file_name"),
      koriva::json::required<&KRFile::fileExtension>("file_extension"));
};

/// One sticker. The key is required.
struct KRSticker {
  std::string sticker;  ///< the sticker, by name or address

  bool operator==(const KRSticker&) const = default;

  /// The JSON keys.
  static constexpr auto fields =
      koriva::json::fields(koriva::json::required<&KRSticker::sticker>("sticker"));
};

/// The attachments document of an image message.
struct KRImageResponse {
  std::vector<KRImage> images;  ///< the pictures; empty when they cannot be read

  bool operator==(const KRImageResponse&) const = default;

  /// The JSON keys.
  static constexpr auto fields =
      koriva::json::fields(koriva::json::lenient<&KRImageResponse::images>("images"));
};

/// The attachments document of an image message of version 0: bare URLs under the same key.
struct KRImageURLsResponse {
  std::vector<std::string> urls;  ///< where the pictures are; empty when they cannot be read

  bool operator==(const KRImageURLsResponse&) const = default;

  /// The JSON keys.
  static constexpr auto fields =
      koriva::json::fields(koriva::json::lenient<&KRImageURLsResponse::urls>("images"));
};

/// The attachments document of a video message.
struct KRVideoResponse {
  KRVideo video;  ///< the video

  bool operator==(const KRVideoResponse&) const = default;

  /// The JSON keys.
  static constexpr auto fields =
      koriva::json::fields(koriva::json::required<&KRVideoResponse::video>("video"));
};

/// The attachments document of an audio message.
struct KRAudioResponse {
  KRAudio audio;  ///< the clip

  bool operator==(const KRAudioResponse&) const = default;

  /// The JSON keys.
  static constexpr auto fields =
      koriva::json::fields(koriva::json::required<&KRAudioResponse::audio>("audio"));
};

/// The attachments document of a file message.
struct KRFileResponse {
  KRFile file;  ///< the file

  bool operator==(const KRFileResponse&) const = default;

  /// The JSON keys.
  static constexpr auto fields =
      koriva::json::fields(koriva::json::required<&KRFileResponse::file>("file"));
};

/// A document that wraps a sticker. Sticker messages carry the bare `KRSticker` instead.
struct KRStickerResponse {
  KRSticker sticker;  ///< the sticker

  bool operator==(const KRStickerResponse&) const = default;

  /// The JSON keys.
  static constexpr auto fields =
      koriva::json::fields(koriva::json::required<&KRStickerResponse::sticker>("sticker"));
};
