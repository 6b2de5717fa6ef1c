// SPDX-License-Identifier: Apache-2.0
// The data reader: a port of the engine that feeds a sample store, with statuses and a listener. The object lives until the last
// holder of its store has released it, so that loans can be returned after the reader was deleted.
#ifndef NORVANE_MIDDLEWARE_DATAREADERENTITY_HPP
#define NORVANE_MIDDLEWARE_DATAREADERENTITY_HPP

#include <atomic>
#include <memory>

#include "middleware/Engine.hpp"
#include "middleware/ListenerGate.hpp"
#include "middleware/PeerRegister.hpp"
#include "middleware/SampleStore.hpp"
#include "middleware/StatusCondition.hpp"
#include "middleware/TopicEntity.hpp"
#include "norvane/dds/Subscriber.hpp"

namespace norvane {
namespace mw {

/// What a participant does with a reader, of whatever type.
class ReaderControl {
public:
    /// Makes the port, disabled. @param code  gets the reason when the result is false; the log has it in words.
    [[nodiscard]] virtual bool prepare(DomainPort& domain, DDSDataReaderListener* listener, DDS_StatusMask mask,
                                       DDS_ReturnCode_t& code) = 0;
    [[nodiscard]] virtual DDS_ReturnCode_t enable() noexcept = 0;
    /// Leaves the domain, and gives the object up: it goes now, or with its last loan. Not for a reader that was never prepared.
    virtual void close() noexcept = 0;
    /// Gives an object up that was never enabled.
    virtual void discard() noexcept = 0;
    virtual bool is_inside_listener() noexcept = 0;
    virtual std::size_t condition_count() noexcept = 0;
    virtual void delete_conditions() noexcept = 0;
    virtual TopicEntity& topic() noexcept = 0;
    virtual ContentFilteredTopicEntity* filtered_topic() noexcept = 0;
    virtual DDSDataReader& reader() noexcept = 0;

protected:
    ~ReaderControl() = default;
};

/// Makes a reader for the topic's type. @param filtered  null for a reader of the whole topic. @param qos  validated.
/// @param last_asked  number of the latest sample of the writer whose answers alone pass the filter; null if the participant has no
///                    such writer.
/// @return null when memory is short.
ReaderControl* make_reader_entity(DDSSubscriber& subscriber, TopicEntity& topic, ContentFilteredTopicEntity* filtered,
                                  const DDS_DataReaderQos& qos, std::shared_ptr<const std::atomic<std::int64_t>> last_asked);

}  // namespace mw
}  // namespace norvane

#endif
