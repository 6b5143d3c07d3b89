/**
 * @file
 * Pictures on their way to becoming thumbnails.
 */
#ifndef ZEL_TOOLS_PICTURE_STREAM_H
#define ZEL_TOOLS_PICTURE_STREAM_H

#include <cstddef>
#include <deque>
#include <filesystem>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <vector>

#include "decoding_pool.h"
#include "picture.h"
#include "picture_location.h"
#include "thumbnail_store.h"

/** A picture whose turn it is. */
struct ReadyPicture {
    std::string path;    /**< as it was given */
    std::string failure; /**< why it cannot have a thumbnail; empty when it can */
    Thumbnail thumbnail; /**< when it can */
    Pixels pixels;       /**< when the thumbnail has to be made */
};

/**
 * Hands out pictures one after another, while threads decode the next ones. Only a few more
 * thumbnails than there are threads wait in memory.
 */
class PictureStream {
public:
    using Locate = std::function<PictureLocation(const std::filesystem::path&)>;

    /**
     * @param pictures  paths of the pictures
     * @param locate    tells where a picture lies, from its canonical path; throws when it may not
     *                  have a thumbnail
     * @param store     tells which thumbnails are there; outlives the stream
     * @param jobs      number of pictures that are decoded at the same time
     * @param box       as for DecodePicture()
     */
    PictureStream(std::vector<std::string> pictures, Locate locate, const ThumbnailStore& store,
                  int jobs, int box);

    /** The next picture, in the order given; none behind the last. */
    [[nodiscard]] std::optional<ReadyPicture> Next();

private:
    struct Entry {
        ReadyPicture picture;
        std::future<Pixels> pixels;  // valid when the picture is decoded
    };

    [[nodiscard]] Entry Begin(const std::string& path);

    const std::vector<std::string> pictures_;
    const Locate locate_;
    const ThumbnailStore& store_;
    const std::size_t most_waiting_;
    std::size_t begun_ = 0;
    std::deque<Entry> waiting_;
    DecodingPool pool_;
};

#endif
