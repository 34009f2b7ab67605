// The pictures of a fleet, coded once for all cameras. A loop is cut into groups, each of which
// begins with a key frame; a group is coded picture by picture, as far as somebody asks for it.
#pragma once

#include <deque>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "camera/picture/h264_encoder.h"
#include "camera/picture/jpeg_encoder.h"
#include "camera/picture/loop.h"
#include "camera/picture/motion.h"
#include "camera/wire/request_name.h"

namespace plendix::camera {

/// One coded picture.
class GalleryPicture {
public:
    GalleryPicture(Bytes file, std::size_t begin, bool key, Brightness brightness)
        : file_(std::make_shared<const Bytes>(std::move(file))),
          begin_(begin),
          key_(key),
          brightness_(std::move(brightness)) {}

    const std::shared_ptr<const Bytes>& file() const { return file_; }
    std::size_t begin() const { return begin_; }  // of the payload
    bool key() const { return key_; }
    const Thumbnail& thumbnail(int zone_edge) const;
    std::size_t bytes() const { return file_->size() + brightness_.squares.size() + sizeof *this; }

private:
    std::shared_ptr<const Bytes> file_;
    std::size_t begin_;
    bool key_;
    Brightness brightness_;
    mutable std::map<int, Thumbnail> thumbnails_;  // by zone edge: at most 16
};

/// Used by one thread.
class Gallery {
public:
    static constexpr std::size_t group = 32;  // pictures, the last group of a loop may have fewer

    /// Forgets the groups that nobody has asked for the longest while there are more than
    /// `limit_bytes` of them.
    Gallery(std::unique_ptr<Loop> loop, std::size_t limit_bytes);

    /// Pictures of the loop; a short scene counts several times.
    std::size_t length() const { return length_; }
    /// Picture `index` as `request` (fitted) wants it. Of an H.264 group the pictures have to be
    /// asked for in order; null when one before this one has not been, or was forgotten. The
    /// picture stays valid until the next call.
    const GalleryPicture* picture(const PictureRequest& request, const Area& sensor, std::size_t index);
    std::size_t bytes() const { return bytes_; }

private:
    struct Group {
        PictureRequest request;
        Area sensor;
        std::size_t first = 0;
        std::map<std::size_t, GalleryPicture> pictures{};  // by index
        std::unique_ptr<H264Encoder> encoder{};            // while pictures are missing
        std::deque<Brightness> waiting{};                  // of pictures that it still holds
        std::size_t fed = 0, bytes = 0;
    };

    Group& find(const PictureRequest& request, const Area& sensor, std::size_t first);
    void code_jpeg(Group& group, std::size_t index);
    void code_h264(Group& group);
    Brightness draw(const Group& group, std::size_t index, const Picture& target);
    void store(Group& group, std::size_t index, GalleryPicture picture);
    void charge(Group& group, std::size_t bytes);
    void open_encoder(Group& group);
    void make_room();

    std::unique_ptr<Loop> loop_;
    const std::size_t length_, limit_;
    std::size_t bytes_ = 0;
    JpegEncoder jpeg_;
    std::list<Group> groups_;  // the one used last in front
};

}  // namespace plendix::camera
