// How many calls a second go through with 64 requests in flight and each reply collected by its identity, over ZeroMQ's sockets?
// SPDX-License-Identifier: Apache-2.0
#include <zmq.h>

#include <array>
#include <thread>

#include "EchoService.hpp"
#include "Placement.hpp"
#include "Question.hpp"
#include "Stopwatch.hpp"

namespace bench {
namespace {

constexpr std::uint64_t IN_FLIGHT = 64;

void require(bool done) {
    if (!done) {
        throw std::runtime_error(std::string("ZeroMQ: ") + zmq_strerror(zmq_errno()));
    }
}

/// A pair of sockets in the process: the fastest of its patterns, since it routes nothing.
class Socket {
public:
    explicit Socket(void* context) : _socket(zmq_socket(context, ZMQ_PAIR)) {
        require(_socket != nullptr);
        const int unlimited = 0;
        require(zmq_setsockopt(_socket, ZMQ_SNDHWM, &unlimited, sizeof unlimited) == 0);
        require(zmq_setsockopt(_socket, ZMQ_RCVHWM, &unlimited, sizeof unlimited) == 0);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    ~Socket() { zmq_close(_socket); }

    void* get() { return _socket; }

private:
    void* _socket;
};

/// Replies wait in a table of places, one for each request that may be in flight: the least that finds one by its identity.
class ZeroMq {
public:
    ZeroMq() {
        require(zmq_bind(_client.get(), "inproc://echo") == 0);
        require(zmq_connect(_server.get(), "inproc://echo") == 0);
        _echo = std::thread([this] { answer(); });
    }
    ~ZeroMq() {
        send(make_payload(STOP));
        _echo.join();
    }

    void send(const Payload& request) {
        require(zmq_send(_client.get(), &request, sizeof request, 0) == static_cast<int>(sizeof request));
    }
    void collect(std::uint64_t number) {
        Payload& wanted = _replies[number % IN_FLIGHT];
        while (wanted.number != number) {
            Payload reply;
            require(zmq_recv(_client.get(), &reply, sizeof reply, 0) == static_cast<int>(sizeof reply));
            _replies[reply.number % IN_FLIGHT] = reply;
        }
        check_echo(wanted, number);
    }
    pthread_t echo_thread() { return _echo.native_handle(); }

private:
    struct Context {
        Context() { require(context != nullptr); }
        ~Context() { zmq_ctx_term(context); }
        void* const context = zmq_ctx_new();
    };

    // The message that came in goes out again: nothing is copied here.
    void answer() {
        zmq_msg_t message;
        zmq_msg_init(&message);
        while (zmq_msg_recv(&message, _server.get(), 0) >= 0 &&
               static_cast<const Payload*>(zmq_msg_data(&message))->number != STOP &&
               zmq_msg_send(&message, _server.get(), 0) >= 0) {
        }
        zmq_msg_close(&message);
    }

    Context _context;
    Socket _client{_context.context};
    Socket _server{_context.context};
    std::array<Payload, IN_FLIGHT> _replies{};
    std::thread _echo;
};

class Ours {
public:
    void send(const Payload& request) { _sent[request.number % IN_FLIGHT] = _service.requester().send_request(request); }
    void collect(std::uint64_t number) {
        const DDS_SampleIdentity_t& id = _sent[number % IN_FLIGHT];
        if (!is_taken(id, number) &&
            !(_service.requester().wait_for_replies(std::chrono::seconds(10), id) && is_taken(id, number))) {
            throw std::runtime_error("no reply within 10 seconds");
        }
    }
    pthread_t echo_thread() { return _service.echo_thread(); }

private:
    bool is_taken(const DDS_SampleIdentity_t& id, std::uint64_t number) {
        const auto replies = _service.requester().take_replies(id);
        if (replies.length() == 0) {
            return false;
        }
        check_echo(replies[0].data(), number);
        return true;
    }

    EchoService<Payload> _service{"ByIdentity"};
    std::array<DDS_SampleIdentity_t, IN_FLIGHT> _sent;
};

/// Keeps IN_FLIGHT requests under way for the length of a round, but for a few; the oldest is collected first.
/// @return calls per second.
template <class Transport>
double calls_per_second(Transport& transport, std::uint64_t& number) {
    const std::uint64_t first = number;
    std::uint64_t collected = first;
    const Clock::time_point start = Clock::now();
    const Clock::time_point end = start + ROUND;
    for (bool sending = true; sending || collected < number; sending = sending && Clock::now() < end) {
        while (sending && number - collected < IN_FLIGHT) {
            transport.send(make_payload(++number));
        }
        // A few at a time: reading the clock costs about as much as a tenth of a call.
        for (int batch = 0; batch < 8 && collected < number; ++batch) {
            transport.collect(++collected);
        }
    }
    return static_cast<double>(collected - first) / ns_since(start) * 1e9;
}

class ByIdentity : public Probe {
public:
    explicit ByIdentity(Placement placement) {
        if (placement == Placement::APART) {
            const cpu_set_t allowed = allowed_processors();
            confine(_ours.echo_thread(), allowed, 0);
            confine(_floor.echo_thread(), allowed, 0);
            confine(pthread_self(), allowed, 1);
        }
    }

    Values measure() override { return {calls_per_second(_ours, _our_number), calls_per_second(_floor, _floor_number)}; }

private:
    Ours _ours;
    ZeroMq _floor;
    std::uint64_t _our_number = 0;
    std::uint64_t _floor_number = 0;
};

Stage stage(Processors processors, Placement placement) {
    return {processors, Spin::DEFAULT, [placement] { return std::make_unique<ByIdentity>(placement); }};
}

const Question question("4_zeromq",
                        {stage(Processors::ONE, Placement::FREE), stage(Processors::TWO, Placement::FREE),
                         stage(Processors::TWO, Placement::APART)},
                        {{"64 in flight, each collected by identity, over ZeroMQ; one core", Unit::RATE, {0, 0}, {0, 1}, 1},
                         {"the same, two cores", Unit::RATE, {1, 0}, {1, 1}, NO_TARGET},
                         {"the same, each thread on its own core", Unit::RATE, {2, 0}, {2, 1}, NO_TARGET}});

}  // namespace
}  // namespace bench
