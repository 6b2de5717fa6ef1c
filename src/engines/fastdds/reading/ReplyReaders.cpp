// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/reading/ReplyReaders.hpp"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "engines/fastdds/reading/ReplyReader.hpp"

namespace norvane {
namespace fastdds {

namespace {

bool is_for_fastdds(const DDS_Property_t& property) noexcept {
    constexpr const char* PREFIXES[] = {"fastdds.", "dds.sec.", "rtps."};
    return property.name == nullptr || std::any_of(std::begin(PREFIXES), std::end(PREFIXES), [&](const char* prefix) {
               return std::strncmp(property.name, prefix, std::strlen(prefix)) == 0;
           });
}

}  // namespace

bool ReplyReaders::can_serve(const mw::ReaderSettings& settings) noexcept {
    const DDS_DataReaderQos& qos = *settings.qos;
    for (DDS_Long index = 0; index < qos.property.value.length(); ++index) {
        if (is_for_fastdds(qos.property.value[index])) {
            return false;
        }
    }
    return settings.routed && settings.info.partner_guid == settings.route &&
           qos.reliability.kind == DDS_RELIABLE_RELIABILITY_QOS && qos.durability.kind == DDS_VOLATILE_DURABILITY_QOS &&
           qos.resource_limits.max_samples == DDS_LENGTH_UNLIMITED && settings.info.user_data.empty() &&
           settings.info.properties.empty();
}

std::shared_ptr<ReplyReader> ReplyReaders::get(const std::shared_ptr<Domain>& domain, const mw::ReaderSettings& settings,
                                               std::string& failure) {
    const DDS_Duration_t& delay = settings.qos->protocol.rtps_reliable_reader.min_heartbeat_response_delay;
    const Kind kind(settings.info.topic_name, settings.info.type_name, settings.info.type_hash, delay.sec, delay.nanosec);
    const std::lock_guard<std::mutex> lock(_mutex);
    for (auto place = _readers.begin(); place != _readers.end();) {
        place = place->second.expired() ? _readers.erase(place) : std::next(place);
    }
    std::weak_ptr<ReplyReader>& place = _readers[kind];
    std::shared_ptr<ReplyReader> reader = place.lock();
    if (!reader) {
        reader = std::make_shared<ReplyReader>(domain, settings.info);
        if (!reader->prepare(*settings.qos, failure)) {
            return nullptr;
        }
        place = reader;
    }
    return reader;
}

}  // namespace fastdds
}  // namespace norvane
