#include "field/replay_registers.h"

#include <algorithm>

namespace plendix {
namespace {

// Models differ in the last digit: 0 has JPEG alone and is asked for it.
constexpr std::uint16_t jpeg_model = 100, h264_model = 105;
constexpr int io_register = 25;  // what is written to it are commands, which are not read again
constexpr int model_register = 122, sensor_right = 72, sensor_bottom = 73;

// None is a value that stands for "not read yet".
const std::map<int, std::uint16_t> usual_values{
    {model_register, jpeg_model}, {123, 61750},          {2, 99},  {15, 3},     {16, 2},  {70, 0}, {71, 0},
    {sensor_right, 1600},         {sensor_bottom, 1200}, {109, 1}, {110, 1028}, {111, 16}};

bool told_by(const ReplayTransfer& transfer) {
    const link::FileName& name = transfer.name;
    const bool command = name.number == io_register && name.kind == link::Kind::register_write;
    return name.number >= 0 && transfer.value >= 0 && !command;
}

}  // namespace

ReplayRegisters::ReplayRegisters(const std::vector<ReplayTransferPointer>& transfers) {
    int width = 0, height = 0;
    for (const auto& transfer : transfers) {
        const link::FileName& name = transfer->name;
        if (told_by(*transfer)) values_.emplace(name.number, static_cast<std::uint16_t>(transfer->value));
        if (!name.picture()) continue;
        width = std::max(width, name.area.x1);
        height = std::max(height, name.area.y1);
        if (name.kind == link::Kind::h264) values_.emplace(model_register, h264_model);
    }
    constexpr int most = 65534;
    if (width > 0 && height > 0) {
        values_.emplace(sensor_right, static_cast<std::uint16_t>(std::min(width, most)));
        values_.emplace(sensor_bottom, static_cast<std::uint16_t>(std::min(height, most)));
    }
    values_.insert(usual_values.begin(), usual_values.end());
}

void ReplayRegisters::note(const ReplayTransfer& transfer) {
    if (told_by(transfer)) values_[transfer.name.number] = static_cast<std::uint16_t>(transfer.value);
}

std::uint16_t ReplayRegisters::answer(const link::FileName& name) {
    if (name.kind != link::Kind::register_write) return values_[name.number];
    const auto value = static_cast<std::uint16_t>(std::clamp(name.value, 0, 65535));
    if (name.number != io_register) values_[name.number] = value;
    return value;
}

}  // namespace plendix
