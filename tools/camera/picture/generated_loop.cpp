#include "camera/picture/loop.h"
#include "camera/picture/scene.h"

namespace plendix::camera {

namespace {

class GeneratedLoop : public Loop {
public:
    std::size_t size() const override { return pictures; }
    void draw(std::size_t index, const Picture& target, const Area& area, bool half,
              const Area& sensor) override {
        Canvas canvas(target, area, half);
        draw_scene(canvas, sensor, {0, index, {}, pictures});
    }

private:
    static constexpr std::size_t pictures = 64;
};

}  // namespace

std::unique_ptr<Loop> generated_loop() {
    return std::make_unique<GeneratedLoop>();
}

}  // namespace plendix::camera
