// One simulated camera: its two sockets and the transfers to its clients. Everything but `state`
// belongs to the I/O thread once the fleet runs.
#pragma once

#include <map>
#include <string>

#include "camera/camera_state.h"
#include "camera/fleet.h"
#include "camera/picture_source.h"
#include "camera/request_name.h"
#include "camera/transfer.h"
#include "camera/udp.h"

namespace plendix::camera {

class Camera {
public:
    /// Binds port 69 and a transfer port of the address, or throws Failure.
    Camera(const Config& config, Fleet::Log log, bool verbose);

    CameraState& state() { return state_; }
    int request_descriptor() const { return requests_.descriptor(); }
    int transfer_descriptor() const { return transfers_.descriptor(); }

    /// Serve what has arrived on a socket, without waiting.
    void serve_requests();
    void serve_transfers();

private:
    struct Session {
        Transfer transfer;
        std::uint64_t begun;  // orders the sessions by age
    };

    void request(const Endpoint& client, const std::uint8_t* data, std::size_t size);
    void begin(const Endpoint& client, const ReadRequest& request);
    std::shared_ptr<const Answer> answer(const RegisterRequest& request);
    std::shared_ptr<const Answer> answer(const PictureRequest& request, const Endpoint& client);
    void acknowledged(const Endpoint& client, std::uint16_t block);
    void send_due(const Endpoint& client, const Transfer& transfer);
    void make_room();
    void refuse(const Endpoint& client, ErrorCode code, const std::string& text);
    void log_write(int number, std::uint16_t value, int relay_before);
    void say(const std::string& text) const;

    const std::string address_;
    const Fleet::Log log_;
    const bool verbose_;
    CameraState state_;
    PictureSource pictures_;
    UdpSocket requests_;
    UdpSocket transfers_;
    std::map<Endpoint, Session> sessions_;
    std::uint64_t begun_ = 0;
};

}  // namespace plendix::camera
