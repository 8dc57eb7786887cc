#include "models/KRAttachments.h"

#include "extensions/JSONFields.h"

using namespace koriva::json;

namespace {

void setMissingSizes(KRImage& image, Room&) {
  for (auto* size : {&image.width, &image.height, &image.subIndex}) *size = size->value_or(0);
}

}  // namespace

constinit const Coding KRImage::coding =
    finishedBy<&setMissingSizes,
               lenient<Field<"url", &KRImage::url>, Field<"width", &KRImage::width>,
                       Field<"height", &KRImage::height>, Field<"sub_index", &KRImage::subIndex>>>;

constinit const Coding KRVideo::coding =
    required<Field<"url", &KRVideo::url>, Field<"thumbnail_url", &KRVideo::thumbnailUrl>,
             Field<"duration", &KRVideo::duration>, Field<"width", &KRVideo::width>,
             Field<"height", &KRVideo::height>>;

constinit const Coding KRAudio::coding =
    required<Field<"url", &KRAudio::url>, Field<"duration", &KRAudio::duration>>;

constinit const Coding KRFile::coding =
    required<Field<"url", &KRFile::url>, Field<"size", &KRFile::size>,
             Field<"file_name", &KRFile::fileName>,
             Field<"file_extension", &KRFile::fileExtension>>;

constinit const Coding KRSticker::coding = required<Field<"sticker", &KRSticker::sticker>>;

constinit const Coding KRImageResponse::coding = lenient<Field<"images", &KRImageResponse::images>>;

constinit const Coding KRImageURLsResponse::coding =
    lenient<Field<"images", &KRImageURLsResponse::urls>>;

constinit const Coding KRVideoResponse::coding = required<Field<"video", &KRVideoResponse::video>>;

constinit const Coding KRAudioResponse::coding = required<Field<"audio", &KRAudioResponse::audio>>;

constinit const Coding KRFileResponse::coding = required<Field<"file", &KRFileResponse::file>>;

constinit const Coding KRStickerResponse::coding =
    required<Field<"sticker", &KRStickerResponse::sticker>>;

std::string KRFile::toString() const { return KRJSONEncoder{}.encode(*this); }
