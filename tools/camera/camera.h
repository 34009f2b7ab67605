// One simulated camera: its two sockets and the transfers to its clients. Everything but `state`
// belongs to the I/O thread once the fleet runs.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "camera/agenda.h"
#include "camera/camera_state.h"
#include "camera/config.h"
#include "camera/fault/fault_injector.h"
#include "camera/picture/picture_source.h"
#include "camera/wire/request_name.h"
#include "camera/wire/transfer.h"
#include "camera/wire/udp.h"

namespace plendix::camera {

class Gallery;

/// What the cameras of a fleet share; all of it lives longer than they do.
struct Surroundings {
    const Behaviour& behaviour;
    Agenda& agenda;
    std::function<void()> catch_up;  // does what is due; called in front of each datagram
    Gallery* gallery;                // null: pictures are drawn live
    UdpSocket* stranger;             // sends what does not come from the camera
    Log log;
    bool verbose;
    std::size_t cameras;
};

class Camera {
public:
    /// Binds port 69 and a transfer port of the address, or throws Failure.
    Camera(const Config& config, std::size_t index, const Surroundings& surroundings);

    CameraState& state() { return state_; }
    int request_descriptor() const { return requests_.descriptor(); }
    int transfer_descriptor() const { return transfers_.descriptor(); }

    /// Serve what has arrived on a socket, without waiting.
    void serve_requests();
    void serve_transfers();
    void inject(const Fault& fault);
    void set_trigger(bool level);

private:
    struct Session {
        Transfer transfer;
        std::uint64_t begun;             // orders the sessions by age, and tells them apart
        Clock::time_point not_before{};  // nothing is sent until then
        bool delayed = false;            // the packet due has had its delay
        bool waiting = false;            // the agenda will go on with it
        bool lost = false;               // a fault keeps the picture from the client
        std::optional<Packet> held{};    // goes out behind the next one
    };

    void request(const Endpoint& client, const std::uint8_t* data, std::size_t size);
    void serve(const Endpoint& client, const ReadRequest& request, const NamedRequest& named);
    void begin(const Endpoint& client, Answer answer, const ReadRequest& request);
    Answer answer(const RegisterRequest& request);
    Answer answer(const PictureRequest& request, const Endpoint& client);
    void acknowledged(const Endpoint& client, std::uint16_t block);
    void pump(const Endpoint& client);
    bool held_up(const Endpoint& client, Session& session);
    void send_next(const Endpoint& client, Session& session);
    void send_faulty(const Endpoint& client, Session& session, Packet& packet);
    bool fails_in_transit(Session& session, Packet& packet);
    void transmit(const Endpoint& client, const Packet& packet);
    void send_strays(const Endpoint& client);
    void make_room();
    void refuse(const Endpoint& client, ErrorCode code, const std::string& text);
    void log_write(int number, std::uint16_t value, int relay_before);
    void say(const std::string& text) const;

    bool hits(FaultKind kind);
    void fall_silent(std::chrono::milliseconds time);
    void reboot(std::chrono::milliseconds time);
    void change_mac();
    void lose(Session& session);

    const std::string address_;
    const Surroundings surroundings_;
    CameraState state_;
    FaultInjector faults_;
    std::unique_ptr<PictureSource> pictures_;
    UdpSocket requests_;
    UdpSocket transfers_;
    std::map<Endpoint, Session> sessions_;
    std::uint64_t begun_ = 0;
    Clock::time_point rate_free_{};   // when the paced link takes the next datagram
    Clock::time_point next_frame_{};  // when the sensor has another picture
    Clock::time_point silent_until_{};
};

}  // namespace plendix::camera
