// Pictures from the gallery of a fleet; of its own a camera has only its clients' places in it.
#pragma once

#include <map>

#include "camera/picture/gallery.h"
#include "camera/picture/picture_source.h"

namespace plendix::camera {

class SharedPictures : public PictureSource {
public:
    /// The gallery lives longer than this.
    explicit SharedPictures(Gallery& gallery) : gallery_(gallery) {}

    Answer next(const PictureRequest& request, const Endpoint& client, const Conditions& conditions) override;
    void end_group() override { places_.clear(); }

private:
    struct Place {
        PictureRequest stream;
        std::size_t next = 0;  // picture of the loop
        Thumbnail shown;
    };

    Place& place(const PictureRequest& request, const Endpoint& client);

    Gallery& gallery_;
    std::map<Endpoint, Place> places_;
};

}  // namespace plendix::camera
