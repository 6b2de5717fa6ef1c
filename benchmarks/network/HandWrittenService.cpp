// SPDX-License-Identifier: Apache-2.0
#include "HandWrittenService.hpp"

#include <cstring>
#include <functional>
#include <stdexcept>
#include <utility>

#include <fastdds/rtps/transport/UDPv4TransportDescriptor.h>
#include <fastdds/rtps/transport/shared_mem/SharedMemTransportDescriptor.h>
#include <fastdds/dds/domain/DomainParticipantFactory.hpp>
#include <fastdds/dds/publisher/Publisher.hpp>
#include <fastdds/dds/subscriber/SampleInfo.hpp>
#include <fastdds/dds/subscriber/Subscriber.hpp>
#include <fastdds/dds/topic/Topic.hpp>
#include <fastdds/dds/topic/TopicDataType.hpp>
#include <fastdds/dds/topic/TypeSupport.hpp>

namespace bench {

namespace dds = eprosima::fastdds::dds;
namespace rtps = eprosima::fastrtps::rtps;
namespace transport = eprosima::fastdds::rtps;
using eprosima::fastrtps::types::ReturnCode_t;

namespace {

constexpr std::chrono::seconds PATIENCE{10};
constexpr std::uint32_t ENCAPSULATION = 4;
// Octets of sockets and of shared memory: as ours has them.
constexpr std::uint32_t BUFFER = 4 * 1024 * 1024;

/// A parcel in CDR, little-endian, copied as a whole.
class ParcelType : public dds::TopicDataType {
public:
    ParcelType() {
        setName("Parcel");
        m_typeSize = 128;  // of the buffers that a history begins with; they grow
        m_isGetKeyDefined = false;
        auto_fill_type_object(false);
        auto_fill_type_information(false);
    }

    bool serialize(void* data, rtps::SerializedPayload_t* payload) override {
        const Parcel& parcel = *static_cast<const Parcel*>(data);
        const std::uint32_t count = static_cast<std::uint32_t>(parcel.octets.size());
        const std::uint8_t header[ENCAPSULATION] = {0, 1, 0, 0};
        std::memcpy(payload->data, header, sizeof header);
        std::memcpy(payload->data + 4, &parcel.number, 8);
        std::memcpy(payload->data + 12, &count, 4);
        std::memcpy(payload->data + 16, parcel.octets.data(), count);
        payload->length = 16 + count;
        payload->encapsulation = CDR_LE;
        return true;
    }

    bool deserialize(rtps::SerializedPayload_t* payload, void* data) override {
        Parcel& parcel = *static_cast<Parcel*>(data);
        std::uint32_t count = 0;
        std::memcpy(&parcel.number, payload->data + 4, 8);
        std::memcpy(&count, payload->data + 12, 4);
        if (payload->length < 16 || payload->length - 16 < count) {
            return false;
        }
        parcel.octets.assign(payload->data + 16, payload->data + 16 + count);
        return true;
    }

    std::function<std::uint32_t()> getSerializedSizeProvider(void* data) override {
        return [data] {
            return static_cast<std::uint32_t>(static_cast<const Parcel*>(data)->octets.size() + PARCEL_HEAD) + ENCAPSULATION;
        };
    }
    void* createData() override { return new Parcel; }
    void deleteData(void* data) override { delete static_cast<Parcel*>(data); }
    bool getKey(void*, rtps::InstanceHandle_t*, bool) override { return false; }
};

dds::DomainParticipant* join(const Link& link) {
    dds::DomainParticipantQos qos;
    qos.transport().use_builtin_transports = false;
    if (link.transport == Transport::UDP) {
        auto udp = std::make_shared<transport::UDPv4TransportDescriptor>();
        udp->interfaceWhiteList.push_back("127.0.0.1");
        udp->sendBufferSize = BUFFER;
        udp->receiveBufferSize = BUFFER;
        qos.transport().user_transports.push_back(udp);
    } else {
        auto shared_memory = std::make_shared<transport::SharedMemTransportDescriptor>();
        shared_memory->segment_size(BUFFER);
        qos.transport().user_transports.push_back(shared_memory);
    }
    dds::DomainParticipant* const participant = dds::DomainParticipantFactory::get_instance()->create_participant(
        static_cast<dds::DomainId_t>(link.domain()), qos, nullptr, dds::StatusMask::none());
    if (participant == nullptr) {
        throw std::runtime_error("no participant");
    }
    return participant;
}

// Of reader and writer alike.
template <class Qos>
Qos endpoint_qos() {
    Qos qos;
    qos.reliability().kind = dds::RELIABLE_RELIABILITY_QOS;
    qos.history().kind = dds::KEEP_ALL_HISTORY_QOS;
    qos.durability().kind = dds::VOLATILE_DURABILITY_QOS;
    qos.resource_limits().max_samples = -1;
    qos.resource_limits().max_instances = -1;
    qos.resource_limits().max_samples_per_instance = -1;
    qos.endpoint().history_memory_policy = rtps::PREALLOCATED_WITH_REALLOC_MEMORY_MODE;
    qos.data_sharing().off();
    return qos;
}

dds::DataWriterQos writer_qos() {
    auto qos = endpoint_qos<dds::DataWriterQos>();
    qos.publish_mode().kind = dds::SYNCHRONOUS_PUBLISH_MODE;
    qos.reliable_writer_qos().times.initialHeartbeatDelay = {0, 0};
    qos.reliable_writer_qos().times.heartbeatPeriod = {0, 10000000};
    qos.reliable_writer_qos().times.nackResponseDelay = {0, 0};
    // With the default of 0, each sample wakes up the thread that serves the timers of Fast DDS: a round trip takes up to twice as
    // long.
    qos.reliable_writer_qos().times.nackSupressionDuration = {0, 5000000};
    return qos;
}

dds::DataReaderQos reader_qos() {
    auto qos = endpoint_qos<dds::DataReaderQos>();
    qos.reliable_reader_qos().times.initialAcknackDelay = {0, 0};
    qos.reliable_reader_qos().times.heartbeatResponseDelay = {0, 0};
    return qos;
}

}  // namespace

// ---- arrivals -----------------------------------------------------------------------------------------------------

void Arrivals::put(Arrival& arrival) {
    {
        std::lock_guard<std::mutex> lock(_mutex);
        if (_count == _arrived.size()) {
            _arrived.emplace_back();
        }
        std::swap(_arrived[_count++], arrival);
    }
    _filled.notify_one();
}

std::size_t Arrivals::take(std::vector<Arrival>& taken, std::chrono::milliseconds patience) {
    std::unique_lock<std::mutex> lock(_mutex);
    _filled.wait_for(lock, patience, [this] { return _count != 0; });
    _arrived.swap(taken);
    return std::exchange(_count, 0);
}

// ---- either end ---------------------------------------------------------------------------------------------------

HandWrittenEnd::HandWrittenEnd(const Link& link, const std::string& write_topic, const std::string& read_topic,
                               bool takes_own_answers_only)
    : _takes_own_answers_only(takes_own_answers_only), _participant(join(link)) {
    dds::TypeSupport type(new ParcelType);
    type.register_type(_participant);
    const auto topic = [&](const std::string& name) {
        return _participant->create_topic(name, type.get_type_name(), dds::TOPIC_QOS_DEFAULT);
    };
    _writer = _participant->create_publisher(dds::PUBLISHER_QOS_DEFAULT)->create_datawriter(topic(write_topic), writer_qos());
    // The listener looks at the writer: it comes last.
    _reader = _participant->create_subscriber(dds::SUBSCRIBER_QOS_DEFAULT)
                  ->create_datareader(topic(read_topic), reader_qos(), this, dds::StatusMask::data_available());
    if (_writer == nullptr || _reader == nullptr) {
        throw std::runtime_error("no writer or reader");
    }
}

HandWrittenEnd::~HandWrittenEnd() {
    _participant->delete_contained_entities();
    dds::DomainParticipantFactory::get_instance()->delete_participant(_participant);
}

rtps::SampleIdentity HandWrittenEnd::write(const Parcel& parcel, const rtps::SampleIdentity& related) {
    rtps::WriteParams params;
    params.related_sample_identity(related);
    if (!_writer->write(const_cast<Parcel*>(&parcel), params)) {
        throw std::runtime_error("not written");
    }
    return params.sample_identity();
}

bool HandWrittenEnd::is_matched() const {
    dds::PublicationMatchedStatus written;
    dds::SubscriptionMatchedStatus read;
    _writer->get_publication_matched_status(written);
    _reader->get_subscription_matched_status(read);
    return written.current_count == 1 && read.current_count == 1;
}

void HandWrittenEnd::on_data_available(dds::DataReader* reader) {
    dds::SampleInfo info;
    while (reader->take_next_sample(&_next.parcel, &info) == ReturnCode_t::RETCODE_OK) {
        if (!info.valid_data || (_takes_own_answers_only && info.related_sample_identity.writer_guid() != _writer->guid())) {
            continue;
        }
        _next.identity = info.sample_identity;
        _next.related = info.related_sample_identity;
        _arrivals.put(_next);
    }
}

// ---- replier ------------------------------------------------------------------------------------------------------

HandWrittenReplier::HandWrittenReplier(const Link& link)
    : _end(link, "EchoReply", "EchoRequest", false), _answering([this] { answer(); }) {}

HandWrittenReplier::~HandWrittenReplier() {
    _ended = true;
    _answering.join();
}

void HandWrittenReplier::answer() {
    std::vector<Arrival> requests;
    while (!_ended) {
        const std::size_t count = _end.arrivals().take(requests, std::chrono::milliseconds(100));
        for (std::size_t index = 0; index < count; ++index) {
            _end.write(requests[index].parcel, requests[index].identity);
        }
    }
}

// ---- requester ----------------------------------------------------------------------------------------------------

HandWrittenRequester::HandWrittenRequester(const Link& link) : _end(link, "EchoRequest", "EchoReply", true) {
    const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
    const auto in_time = [&] {
        if (std::chrono::steady_clock::now() >= deadline) {
            throw std::runtime_error("no replier within 10 seconds");
        }
        return true;
    };
    while (!_end.is_matched() && in_time()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    // Nobody tells when the replier has found this reader: the first answers may go nowhere.
    rtps::SequenceNumber_t last;
    rtps::SequenceNumber_t answered;
    do {
        last = _end.write(make_parcel(64)).sequence_number();
        const std::size_t count = _end.arrivals().take(_taken, std::chrono::milliseconds(100));
        if (count != 0) {
            answered = _taken[count - 1].related.sequence_number();
        }
    } while (answered != last && in_time());
}

void HandWrittenRequester::call(const Parcel& request) {
    const rtps::SampleIdentity identity = _end.write(request);
    const std::size_t count = _end.arrivals().take(_taken, PATIENCE);
    if (count == 0) {
        throw std::runtime_error("no reply within 10 seconds");
    }
    if (count != 1 || _taken[0].related != identity || _taken[0].parcel.number != request.number) {
        throw std::runtime_error("wrong reply");
    }
}

std::uint64_t HandWrittenRequester::collect(std::uint64_t expected) {
    const std::size_t count = _end.arrivals().take(_taken, PATIENCE);
    if (count == 0) {
        throw std::runtime_error("no reply within 10 seconds");
    }
    for (std::size_t index = 0; index < count; ++index) {
        if (_taken[index].parcel.number != expected++) {
            throw std::runtime_error("wrong reply");
        }
    }
    return count;
}

}  // namespace bench
