// SPDX-License-Identifier: Apache-2.0
#include "middleware/ParticipantFactory.hpp"

#include <cstdlib>
#include <new>

#include "middleware/Log.hpp"

namespace norvane {
namespace mw {

namespace {

constexpr const char* ENGINE_PROPERTY = "norvane.engine";
constexpr const char* ENGINE_VARIABLE = "NORVANE_ENGINE";
constexpr const char* DEFAULT_ENGINE = "embedded";
constexpr DDS_DomainId_t HIGHEST_DOMAIN = 232;

std::string engine_name(const DDS_DomainParticipantQos& qos) {
    const DDS_Property_t* property = DDSPropertyQosPolicyHelper::lookup_property(qos.property, ENGINE_PROPERTY);
    if (property != nullptr && property->value != nullptr) {
        return property->value;
    }
    const char* variable = std::getenv(ENGINE_VARIABLE);
    return variable != nullptr && *variable != '\0' ? variable : DEFAULT_ENGINE;
}

}  // namespace

DDSDomainParticipant* ParticipantFactory::create_participant(DDS_DomainId_t domain_id, const DDS_DomainParticipantQos& qos,
                                                             DDSDomainParticipantListener* /*listener*/, DDS_StatusMask /*mask*/) {
    constexpr const char* METHOD = "DDSDomainParticipantFactory::create_participant";
    if (domain_id < 0 || domain_id > HIGHEST_DOMAIN) {
        log_error(METHOD, [domain_id] {
            return "the domain is " + std::to_string(domain_id) + "; it must be from 0 to " + std::to_string(HIGHEST_DOMAIN);
        });
        return nullptr;
    }
    try {
        std::string failure;
        const std::string name = engine_name(qos);
        Engine* engine = select_engine(name, failure);
        if (engine == nullptr) {
            log_error(METHOD, [&] { return "engine \"" + name + "\": " + failure; });
            return nullptr;
        }
        auto participant = std::make_unique<ParticipantEntity>(domain_id, *engine);
        if (!participant->prepare(qos)) {
            return nullptr;
        }
        DDSDomainParticipant* made = participant.get();
        std::lock_guard<std::mutex> lock(_mutex);
        _participants.emplace(made, std::move(participant));
        return made;
    } catch (const std::bad_alloc&) {
        log_error(METHOD, "out of memory");
        return nullptr;
    }
}

DDS_ReturnCode_t ParticipantFactory::delete_participant(DDSDomainParticipant* participant) {
    constexpr const char* METHOD = "DDSDomainParticipantFactory::delete_participant";
    std::unique_ptr<ParticipantEntity> deleted;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        const auto found = _participants.find(participant);
        if (found == _participants.end()) {
            log_error(METHOD, "the participant is null, deleted already, or was not made by this factory");
            return DDS_RETCODE_BAD_PARAMETER;
        }
        if (!found->second->is_empty()) {
            log_error(METHOD, [&] {
                return "the participant still has " + found->second->contents() +
                       "; delete them first, or call delete_contained_entities (a requester, replier or service is destroyed)";
            });
            return DDS_RETCODE_PRECONDITION_NOT_MET;
        }
        deleted = std::move(found->second);
        _participants.erase(found);
    }
    return ParticipantEntity::release(std::move(deleted));
}

DDS_ReturnCode_t ParticipantFactory::release_participant(DDSDomainParticipant* participant) {
    std::unique_ptr<ParticipantEntity> released;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        const auto found = _participants.find(participant);
        if (found == _participants.end()) {
            log_error("DDSDomainParticipantFactory::release_participant",
                      "the participant is null, deleted already, or was not made by this factory");
            return DDS_RETCODE_BAD_PARAMETER;
        }
        released = std::move(found->second);
        _participants.erase(found);
    }
    return ParticipantEntity::release(std::move(released));
}

}  // namespace mw
}  // namespace norvane

DDSDomainParticipantFactory::~DDSDomainParticipantFactory() = default;

DDSDomainParticipantFactory* DDSDomainParticipantFactory::get_instance() {
    // Never destroyed: objects with static storage may use it while they are destroyed themselves.
    static norvane::mw::ParticipantFactory* const INSTANCE = new norvane::mw::ParticipantFactory();
    return INSTANCE;
}
