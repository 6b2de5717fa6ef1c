// SPDX-License-Identifier: Apache-2.0
// The floor: request-reply as one writes it by hand on the DDS layer of Fast DDS, for one requester and one replier.
//
// A listener takes each sample and hands it to the application's thread, which sleeps on a condition variable meanwhile. The reply
// carries the identity of the request; the requester drops replies to others when they arrive. Buffers are used again and again.
// Thread rule: made, used and destroyed by one thread.
#ifndef BENCH_NETWORK_HANDWRITTENSERVICE_HPP
#define BENCH_NETWORK_HANDWRITTENSERVICE_HPP

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <fastdds/rtps/common/SampleIdentity.h>
#include <fastdds/dds/domain/DomainParticipant.hpp>
#include <fastdds/dds/publisher/DataWriter.hpp>
#include <fastdds/dds/subscriber/DataReader.hpp>
#include <fastdds/dds/subscriber/DataReaderListener.hpp>

#include "Link.hpp"
#include "Parcel.hpp"
#include "benchmarks/Question.hpp"

namespace bench {

struct Arrival {
    Parcel parcel;
    eprosima::fastrtps::rtps::SampleIdentity identity;  ///< Of the sample.
    eprosima::fastrtps::rtps::SampleIdentity related;   ///< Of the sample that it answers.
};

/// Samples that have arrived, in their order: one thread puts, one takes.
class Arrivals {
public:
    /// @param arrival  gets an old one in exchange.
    void put(Arrival& arrival);

    /// Sleeps until there are some. @param taken  those of an earlier call, whose buffers are used again.
    /// @return how many of `taken` are new; 0 when none came in time.
    std::size_t take(std::vector<Arrival>& taken, std::chrono::milliseconds patience);

private:
    std::mutex _mutex;
    std::condition_variable _filled;
    std::vector<Arrival> _arrived;
    std::size_t _count = 0;
};

/// A participant with a writer and a reader.
class HandWrittenEnd : private eprosima::fastdds::dds::DataReaderListener {
public:
    HandWrittenEnd(const Link& link, const std::string& write_topic, const std::string& read_topic, bool takes_own_answers_only);
    HandWrittenEnd(const HandWrittenEnd&) = delete;
    HandWrittenEnd& operator=(const HandWrittenEnd&) = delete;
    ~HandWrittenEnd() override;

    /// @return the identity of the sample.
    eprosima::fastrtps::rtps::SampleIdentity write(const Parcel& parcel, const eprosima::fastrtps::rtps::SampleIdentity& related =
                                                                             eprosima::fastrtps::rtps::SampleIdentity::unknown());
    Arrivals& arrivals() { return _arrivals; }
    bool is_matched() const;

private:
    void on_data_available(eprosima::fastdds::dds::DataReader* reader) override;

    const bool _takes_own_answers_only;
    eprosima::fastdds::dds::DomainParticipant* _participant = nullptr;
    eprosima::fastdds::dds::DataWriter* _writer = nullptr;
    eprosima::fastdds::dds::DataReader* _reader = nullptr;
    Arrivals _arrivals;
    Arrival _next;  // of the listener's thread
};

/// Answers on a thread of its own.
class HandWrittenReplier : public Probe {
public:
    explicit HandWrittenReplier(const Link& link);
    ~HandWrittenReplier() override;
    Values measure() override { return {}; }

private:
    void answer();

    HandWrittenEnd _end;
    std::atomic<bool> _ended{false};
    std::thread _answering;  // last: it uses the others
};

/// A requester that is ready to call.
class HandWrittenRequester {
public:
    explicit HandWrittenRequester(const Link& link);

    /// Sends, and blocks until the answer to that very request is there.
    void call(const Parcel& request);
    void send(const Parcel& request) { _end.write(request); }
    /// @return how many replies came, at least one; each is checked.
    std::uint64_t collect(std::uint64_t expected);

private:
    HandWrittenEnd _end;
    std::vector<Arrival> _taken;
};

}  // namespace bench

#endif
