// SPDX-License-Identifier: Apache-2.0
// The seam. Above it: sample states, conditions, index, wait sets, loans, filters, QoS records. Below it, an engine: makes
// endpoints, moves a sample with its identities to the matching readers, reports peers, tells the time, and closes.
//
// Downcalls (to ports) come from any thread, with no lock of the middleware held. Upcalls (to sinks) are noexcept; they never
// block, write, call the engine, or take a lock that is held across a call of the engine. Only `announce` runs user code; it is
// called with no lock of the engine held. Lock order: engine, store, wait set.
// Nothing crosses the seam as an exception.
#ifndef NORVANE_MIDDLEWARE_ENGINE_HPP
#define NORVANE_MIDDLEWARE_ENGINE_HPP

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "norvane/dds/TypeSupport.hpp"
#include "norvane/dds/qos.hpp"
#include "norvane/dds/types.hpp"
#include "platform/WakeBatch.hpp"

namespace norvane {
namespace mw {

/// Changes with every change of this file. An engine module of another number is refused by name.
constexpr std::uint32_t ENGINE_ABI = 7;

// ---- samples ----------------------------------------------------------------------------------------------------

/// What travels with a sample.
struct SampleMetadata {
    DDS_SampleIdentity_t identity;          ///< Virtual GUID of the writer, and its number.
    DDS_SampleIdentity_t related_identity;  ///< Unknown when the sample answers none.
    DDS_Time_t source_timestamp = DDS_TIME_INVALID;
    DDS_Time_t reception_timestamp = DDS_TIME_INVALID;
};

class SamplePool;

/// One immutable sample in place, shared by all readers that hold it. The last one to release it gives it back to its pool.
struct Sample {
    std::atomic<std::uint32_t> references{1};
    SamplePool* pool = nullptr;
    void* data = nullptr;
    Sample* next = nullptr;  ///< For the pool, while the sample is free.
    SampleMetadata metadata;
};

/// Makes samples of one type. Lives until its owner and all of its samples have released it.
class SamplePool {
public:
    /// Copies a sample of the type. @return one reference; null when memory is short or the copy threw.
    virtual Sample* make_copy(const void* data) noexcept = 0;
    /// Decodes a sample. @return one reference; null when memory is short or the octets are not a sample of the type.
    virtual Sample* make_decoded(const std::uint8_t* octets, std::size_t length) noexcept = 0;
    /// @return octets that `encode` needs for the sample; 0 when it cannot be encoded.
    virtual std::size_t encoded_size(const void* data) noexcept = 0;
    /// Encodes a sample. @return octets written; 0 when it cannot be encoded, or does not fit.
    virtual std::size_t encode(const void* data, std::uint8_t* octets, std::size_t capacity) noexcept = 0;
    virtual const DDS_TypeOperations& type() const noexcept = 0;
    /// Takes back a sample that has no reference left.
    virtual void take_back(Sample& sample) noexcept = 0;

protected:
    virtual ~SamplePool() = default;
};

inline void retain(Sample& sample) noexcept { sample.references.fetch_add(1, std::memory_order_relaxed); }

inline void release(Sample& sample) noexcept {
    // The only reference needs no atomic decrement: another one can only be made from it.
    if (sample.references.load(std::memory_order_acquire) == 1 || sample.references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        sample.pool->take_back(sample);
    }
}

struct ReleaseSample {
    void operator()(Sample* sample) const noexcept { release(*sample); }
};
/// One reference to a sample. A plain value.
typedef std::unique_ptr<Sample, ReleaseSample> SampleReference;

/// @return one more reference.
inline SampleReference share(Sample& sample) noexcept {
    retain(sample);
    return SampleReference(&sample);
}

// ---- endpoints and peers ----------------------------------------------------------------------------------------

/// What peers learn of an endpoint.
struct EndpointInfo {
    DDS_GUID_t guid = DDS_GUID_AUTO;                 ///< Virtual GUID; automatic until the engine has made the endpoint.
    DDS_GUID_t participant_guid = DDS_GUID_UNKNOWN;  ///< Set by the engine.
    DDS_GUID_t partner_guid = DDS_GUID_UNKNOWN;      ///< Endpoint that belongs to it: of a routed reader, the route.
    std::string topic_name;
    std::string type_name;
    std::uint64_t type_hash = 0;
    DDS_ReliabilityQosPolicy reliability;
    DDS_DurabilityQosPolicy durability;
    std::vector<std::uint8_t> user_data;
    std::string name;
    std::string role_name;
    std::vector<std::pair<std::string, std::string>> properties;  ///< The propagated ones.
};

enum class PeerEventKind {
    MATCHED,
    DELETED,           ///< The peer left in good order.
    LOST,              ///< The peer, or its participant, is silent for longer than its lease.
    INCOMPATIBLE_QOS,  ///< Same topic and type, but a policy stands against it.
    INCOMPATIBLE_TYPE  ///< Same topic, another type.
};

/// Something happened to a peer. MATCHED comes before DELETED or LOST of the same peer, and is followed by one of them at most.
struct PeerEvent {
    PeerEventKind kind;
    std::shared_ptr<const EndpointInfo> peer;
    DDS_QosPolicyId_t policy = DDS_INVALID_QOS_POLICY_ID;  ///< INCOMPATIBLE_QOS only, with the two kinds.
    DDS_Long offered = 0;
    DDS_Long requested = 0;
};

/// Receives the events of an endpoint's peers.
class PeerSink {
public:
    /// @return whether `announce` is wanted.
    virtual bool peer_changed(const PeerEvent& event) noexcept = 0;
    /// Runs the listeners for what has come. Runs user code, and may block as long as that does.
    virtual void announce() noexcept = 0;

protected:
    ~PeerSink() = default;
};

/// What a reader says to a sample before it is copied or decoded.
enum class Admission {
    SLOT,      ///< Room is kept for it: `commit` or `abandon` must follow.
    FILTERED,  ///< The reader's filter does not pass it.
    UNWANTED,  ///< The reader has no use for it (any more); it is counted there.
    FULL,      ///< No room now. The reader calls its port's `room_freed` when there is.
    NO_MEMORY  ///< Memory is short.
};

/// Takes a reader's samples in.
class SampleSink : public PeerSink {
public:
    /// Asks for room. @param data  the sample; null while it is still encoded: a filter that needs it is then evaluated by
    /// `commit`.
    virtual Admission admit(const SampleMetadata& metadata, const void* data) noexcept = 0;
    /// Gives the room of an admitted sample back. The engine itself tells the writers that wait for room there.
    virtual void abandon() noexcept = 0;
    /// Stores an admitted sample. A sample that the filter, evaluated only now, does not pass is not stored; its room is free again
    /// (as after `abandon`).
    /// @param sample  not null. The reference passes to the reader: its last one then goes back without an atomic decrement.
    /// @param wake    gets the threads to wake once all locks are released.
    /// @return whether `announce` is wanted.
    virtual bool commit(SampleReference sample, platform::WakeBatch& wake) noexcept = 0;
    /// `admit` and `commit` in one step, for a sample that goes to one reader only.
    /// @param sample    not null. Null afterwards when the answer is SLOT; otherwise still the caller's.
    /// @param announce  set when `announce` is wanted.
    virtual Admission deliver(SampleReference& sample, platform::WakeBatch& wake, bool& announce) noexcept = 0;
    /// Counts a sample that was lost on its way, or dropped because a best-effort reader was full.
    /// @return whether `announce` is wanted.
    virtual bool sample_lost() noexcept = 0;

protected:
    ~SampleSink() = default;
};

/// Everything an engine needs to make a writer. Borrowed for the call, but for `pool`.
struct WriterSettings {
    EndpointInfo info;
    const DDS_DataWriterQos* qos = nullptr;
    SamplePool* pool = nullptr;  ///< Lives until the port is destroyed.
    /// The engine raises it to the number of each sample, before a reader can have the sample. Not null.
    std::shared_ptr<std::atomic<std::int64_t>> last_number = std::make_shared<std::atomic<std::int64_t>>(0);
};

/// Everything an engine needs to make a reader. Borrowed for the call, but for `pool`.
struct ReaderSettings {
    EndpointInfo info;
    const DDS_DataReaderQos* qos = nullptr;
    SamplePool* pool = nullptr;  ///< Lives until the port is destroyed.
    bool routed = false;         ///< Only samples whose related writer GUID is `route` pass the filter.
    DDS_GUID_t route = DDS_GUID_UNKNOWN;
    std::string filter_name;        ///< Name of the content-filtered topic; empty when there is none.
    std::string filter_expression;  ///< Its text, for peers that filter at their end.
    std::vector<std::string> filter_parameters;
};

/// One write.
struct WriteRequest {
    const void* data = nullptr;  ///< Borrowed for the call.
    DDS_SampleIdentity_t related_identity;
    DDS_Time_t source_timestamp = DDS_TIME_INVALID;                   ///< Invalid: the time of the write.
    DDS_SequenceNumber_t sequence_number = DDS_AUTO_SEQUENCE_NUMBER;  ///< Automatic, or above every number used.
    DDS_Duration_t max_blocking_time = DDS_DURATION_ZERO;
};

/// What a writer has written.
struct WriteCounts {
    std::int64_t written = 0;         ///< Successful writes.
    std::int64_t unaddressed = 0;     ///< Of these, those for which there was no reader at all.
    std::int64_t unacknowledged = 0;  ///< Of these, those that some reader has not acknowledged yet, as far as is known.
};

/// A writer in an engine. Disabled until `enable`; no upcall before that.
class WriterPort {
public:
    /// Closed, or never enabled, when destroyed.
    virtual ~WriterPort() = default;
    /// @return what peers learn, with the GUIDs in place.
    virtual const EndpointInfo& info() const noexcept = 0;
    /// Lets the writer be seen. @param sink  lives until `close` has returned.
    [[nodiscard]] virtual DDS_ReturnCode_t enable(PeerSink& sink) noexcept = 0;
    /// Writes one sample. All or none: a reliable write that finds a reader full stores nothing until there is room everywhere.
    /// @param identity   gets the identity assigned; unknown when the engine will assign it later.
    /// @param addressed  gets whether there was a reader to send it to.
    /// @return OK; TIMEOUT; OUT_OF_RESOURCES; BAD_PARAMETER for a number that is not above those used, UNSUPPORTED where the engine
    ///         assigns all of them; ALREADY_DELETED once closed.
    [[nodiscard]] virtual DDS_ReturnCode_t write(const WriteRequest& request, DDS_SampleIdentity_t& identity,
                                                 bool& addressed) noexcept = 0;
    /// Counted by the engine: the listeners that `write` runs may delete the entity that called it.
    virtual WriteCounts counts() noexcept = 0;
    /// @return OK; TIMEOUT; ALREADY_DELETED once closed.
    [[nodiscard]] virtual DDS_ReturnCode_t wait_for_acknowledgments(const DDS_Duration_t& max_wait) noexcept = 0;
    /// Leaves. Threads blocked in `write` return first; when it returns, no upcall runs or will run.
    virtual void close() noexcept = 0;
};

/// A reader in an engine. Disabled until `enable`; no upcall before that.
class ReaderPort {
public:
    /// Closed, or never enabled, when destroyed.
    virtual ~ReaderPort() = default;
    /// @return what peers learn, with the GUIDs in place.
    virtual const EndpointInfo& info() const noexcept = 0;
    /// Lets the reader be seen. @param sink  lives until `close` has returned.
    [[nodiscard]] virtual DDS_ReturnCode_t enable(SampleSink& sink) noexcept = 0;
    /// There is room again, after the sink answered FULL.
    virtual void room_freed() noexcept = 0;
    /// Leaves. When it returns, no upcall runs or will run.
    virtual void close() noexcept = 0;
};

/// What an engine needs to join a domain. Borrowed for the call.
struct DomainSettings {
    DDS_DomainId_t domain_id = 0;
    const DDS_DomainParticipantQos* qos = nullptr;
};

/// A participant in an engine. Its ports are destroyed before it.
class DomainPort {
public:
    virtual ~DomainPort() = default;
    virtual DDS_GUID_t guid() const noexcept = 0;
    /// @param failure  gets the code and the reason, in words for the log, when the result is null.
    virtual std::unique_ptr<WriterPort> make_writer(const WriterSettings& settings, DDS_ReturnCode_t& code,
                                                    std::string& failure) = 0;
    virtual std::unique_ptr<ReaderPort> make_reader(const ReaderSettings& settings, DDS_ReturnCode_t& code,
                                                    std::string& failure) = 0;
    virtual DDS_Time_t current_time() noexcept = 0;
};

/// A way for samples to travel. One per kind and process; never destroyed.
class Engine {
public:
    virtual const char* name() const noexcept = 0;
    /// Whether samples leave the process, so that types must be encodable.
    virtual bool leaves_process() const noexcept = 0;
    /// Whether the engine may hold a written sample back while its thread goes on writing, so that several are sent together.
    /// Threads then call `send_deferred` before they wait, and when they read and find no sample.
    virtual bool defers() const noexcept { return false; }
    /// Sends now what the calling thread wrote and the engine holds back.
    virtual void send_deferred() noexcept {}
    virtual std::unique_ptr<DomainPort> join(const DomainSettings& settings, DDS_ReturnCode_t& code, std::string& failure) = 0;

protected:
    virtual ~Engine() = default;
};

/// Finds an engine by name; defined in src/engines/select.cpp, the only file that knows which there are.
/// @param failure  gets the reason when the result is null.
/// @return the engine, which lives as long as the process; null when there is none of that name, or it cannot be loaded.
Engine* select_engine(const std::string& name, std::string& failure);

/// Name of the function that an engine module exports, and its type. It returns null for an ABI that it was not built for.
constexpr const char* ENGINE_ENTRY_NAME = "norvane_engine";
typedef Engine* (*EngineEntry)(std::uint32_t abi);

}  // namespace mw
}  // namespace norvane

#endif
