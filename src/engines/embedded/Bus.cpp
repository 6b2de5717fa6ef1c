// SPDX-License-Identifier: Apache-2.0
#include "engines/embedded/Bus.hpp"

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

#include "engines/embedded/PendingAnnouncements.hpp"
#include "engines/judgement.hpp"

namespace norvane {
namespace embedded {

namespace {

mw::PeerEvent judge(const mw::EndpointInfo& writer, const mw::EndpointInfo& reader) noexcept {
    return mw::judge(writer, reader, writer.type_name == reader.type_name && writer.type_hash == reader.type_hash);
}

}  // namespace

std::shared_ptr<Bus> Bus::of_domain(DDS_DomainId_t domain_id) {
    struct Registry {
        std::mutex mutex;
        std::unordered_map<DDS_DomainId_t, std::weak_ptr<Bus>> buses;
    };
    // Never destroyed: participants of static life may join and leave after main.
    static Registry* const REGISTRY = new Registry;
    std::lock_guard<std::mutex> lock(REGISTRY->mutex);
    std::weak_ptr<Bus>& place = REGISTRY->buses[domain_id];
    std::shared_ptr<Bus> bus = place.lock();
    if (!bus) {
        bus = std::make_shared<Bus>();
        place = bus;
    }
    return bus;
}

bool Bus::claim_guid(DDS_GUID_t& guid) {
    std::lock_guard<std::mutex> lock(_mutex);
    if (guid != DDS_GUID_AUTO) {
        return _guids.insert(guid).second;
    }
    // An application may already have chosen the GUID that is generated next.
    do {
        guid = next_guid();
    } while (!_guids.insert(guid).second);
    return true;
}

void Bus::give_back_guid(const DDS_GUID_t& guid) noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    _guids.erase(guid);
}

DDS_ReturnCode_t Bus::add(const std::shared_ptr<Writer>& writer) noexcept {
    return add_to_topic(writer, &Topic::writers, &Topic::readers,
                        [&](const std::shared_ptr<Reader>& reader, platform::WakeBatch& wake, bool& own_announces,
                            bool& other_announces) { meet_locked(writer, reader, wake, own_announces, other_announces); });
}

DDS_ReturnCode_t Bus::add(const std::shared_ptr<Reader>& reader) noexcept {
    return add_to_topic(reader, &Topic::readers, &Topic::writers,
                        [&](const std::shared_ptr<Writer>& writer, platform::WakeBatch& wake, bool& own_announces,
                            bool& other_announces) { meet_locked(writer, reader, wake, other_announces, own_announces); });
}

template <typename Own, typename Other, typename Meet>
DDS_ReturnCode_t Bus::add_to_topic(const std::shared_ptr<Own>& own, std::vector<std::shared_ptr<Own>> Topic::*own_kind,
                                   std::vector<std::shared_ptr<Other>> Topic::*other_kind, Meet meet) noexcept {
    DDS_ReturnCode_t code = DDS_RETCODE_OK;
    platform::WakeBatch wake;
    PendingAnnouncements announcements;
    bool own_announces = false;
    try {
        std::lock_guard<std::mutex> lock(_mutex);
        Topic& topic = _topics[own->info()->topic_name];
        (topic.*own_kind).push_back(own);
        if (!announcements.make_room((topic.*other_kind).size() + 1)) {
            throw std::bad_alloc();
        }
        for (const std::shared_ptr<Other>& other : topic.*other_kind) {
            bool other_announces = false;
            meet(other, wake, own_announces, other_announces);
            if (other_announces) {
                announcements.add(other);
            }
        }
    } catch (const std::exception&) {
        code = DDS_RETCODE_OUT_OF_RESOURCES;
    }
    wake.flush();
    if (own_announces) {
        announcements.add(own);
    }
    announcements.run();
    if (code != DDS_RETCODE_OK) {
        remove(own);
    }
    return code;
}

void Bus::meet_locked(const std::shared_ptr<Writer>& writer, const std::shared_ptr<Reader>& reader, platform::WakeBatch& wake,
                      bool& writer_announces, bool& reader_announces) {
    mw::PeerEvent event = judge(*writer->info(), *reader->info());
    if (event.kind == mw::PeerEventKind::MATCHED) {
        std::vector<std::shared_ptr<Writer>>& writers = reader->writers_locked();
        writers.push_back(writer);
        try {
            writer->connect_locked(reader, wake, reader_announces);
        } catch (...) {
            writers.pop_back();
            throw;
        }
    }
    event.peer = reader->info();
    writer_announces = writer->note_locked(event) || writer_announces;
    event.peer = writer->info();
    reader_announces = reader->note_locked(event) || reader_announces;
}

void Bus::remove(const std::shared_ptr<Writer>& writer) noexcept {
    std::vector<std::unique_ptr<Match>> matches;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        if (!take_out_locked(writer, &Topic::writers)) {
            return;
        }
        matches = writer->shut_locked();
        for (const std::unique_ptr<Match>& match : matches) {
            std::vector<std::shared_ptr<Writer>>& writers = match->reader->writers_locked();
            *std::find(writers.begin(), writers.end(), writer) = std::move(writers.back());
            writers.pop_back();
            match->announce = match->reader->note_locked({mw::PeerEventKind::DELETED, writer->info()});
        }
    }
    for (const std::unique_ptr<Match>& match : matches) {
        if (match->announce) {
            match->reader->announce();
        }
    }
    writer->wait_until_nobody_sleeps();
    writer->wait_until_quiet();
}

void Bus::remove(const std::shared_ptr<Reader>& reader) noexcept {
    std::vector<std::shared_ptr<Writer>> writers;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        if (!take_out_locked(reader, &Topic::readers)) {
            return;
        }
        writers.swap(reader->writers_locked());
        for (std::shared_ptr<Writer>& writer : writers) {
            writer->disconnect_locked(*reader);
            if (!writer->note_locked({mw::PeerEventKind::DELETED, reader->info()})) {
                writer.reset();
            }
        }
    }
    // Writers that wait for room in the reader go on without it.
    reader->signal_room();
    for (const std::shared_ptr<Writer>& writer : writers) {
        if (writer) {
            writer->announce();
        }
    }
    reader->wait_until_quiet();
}

template <typename Own>
bool Bus::take_out_locked(const std::shared_ptr<Own>& own, std::vector<std::shared_ptr<Own>> Topic::*own_kind) noexcept {
    if (!own->leave_locked()) {
        return false;
    }
    _guids.erase(own->info()->guid);
    const auto topic = _topics.find(own->info()->topic_name);
    if (topic == _topics.end()) {
        return true;  // never added
    }
    std::vector<std::shared_ptr<Own>>& list = topic->second.*own_kind;
    const auto place = std::find(list.begin(), list.end(), own);
    if (place != list.end()) {
        place->swap(list.back());
        list.pop_back();
    }
    if (topic->second.writers.empty() && topic->second.readers.empty()) {
        _topics.erase(topic);
    }
    return true;
}

void Bus::send_backlogs(const std::shared_ptr<Reader>& reader) noexcept {
    platform::WakeBatch wake;
    bool announce = false;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        for (const std::shared_ptr<Writer>& writer : reader->writers_locked()) {
            writer->send_backlog_locked(*reader, wake, announce);
        }
    }
    wake.flush();
    // Writers that had a backlog for the reader may write again.
    reader->signal_room();
    if (announce) {
        reader->announce();
    }
}

}  // namespace embedded
}  // namespace norvane
