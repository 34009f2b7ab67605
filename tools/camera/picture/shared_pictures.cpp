#include "camera/picture/shared_pictures.h"

namespace plendix::camera {

namespace {

constexpr std::size_t most_places = 32;  // a client that goes away leaves one behind

std::size_t group_begin(std::size_t index) {
    return index / Gallery::group * Gallery::group;
}

}  // namespace

Answer SharedPictures::next(const PictureRequest& asked, const Endpoint& client,
                            const Conditions& conditions) {
    const PictureRequest request = fitted(asked);
    Place& at = place(request, client);
    // A key frame that is asked for is that of the next group, unless one is due anyway.
    if (request.key && at.next % Gallery::group != 0) at.next = group_begin(at.next) + Gallery::group;
    if (at.next >= gallery_.length()) at.next = 0;
    const GalleryPicture* picture = gallery_.picture(request, conditions.sensor, at.next);
    if (picture == nullptr) {
        at.next = group_begin(at.next);
        picture = gallery_.picture(request, conditions.sensor, at.next);
    }
    ++at.next;
    const Thumbnail& shown = picture->thumbnail(conditions.motion.zone_edge);
    Answer answer;
    answer.data = picture->file();
    answer.begin = picture->begin();
    answer.key = picture->key();
    answer.trailer =
        make_trailer(request, conditions, compare(at.shown, shown, conditions.motion), answer.key);
    at.shown = shown;
    return answer;
}

SharedPictures::Place& SharedPictures::place(const PictureRequest& request, const Endpoint& client) {
    const auto found = places_.find(client);
    if (found != places_.end() && found->second.stream == request) return found->second;
    if (found == places_.end() && places_.size() >= most_places) places_.erase(places_.begin());
    return places_[client] = Place{request, 0, {}};
}

}  // namespace plendix::camera
