// SPDX-License-Identifier: Apache-2.0
// Requester and replier of the core with their protected members open, on the built-in string type.
#ifndef NORVANE_TESTS_SUPPORT_OPENENTITIES_HPP
#define NORVANE_TESTS_SUPPORT_OPENENTITIES_HPP

#include <string>

#include "norvane/details/ReplierUntypedImpl.hpp"
#include "norvane/details/RequesterUntypedImpl.hpp"

namespace norvane::test {

inline const char* register_string(DDSTypeSupport*, DDSDomainParticipant* participant) {
    const DDSStringTypeSupport& type = DDSStringTypeSupport::get_instance();
    return type.register_type(participant) == DDS_RETCODE_OK ? type.get_type_name() : nullptr;
}

/// One entity of the core. `Entity` is RequesterUntypedImpl or ReplierUntypedImpl.
template <typename Entity>
class Open : public Entity {
public:
    using Entity::_any_sample_cond;
    using Entity::_max_samples_per_read;
    using Entity::_not_read_sample_cond;
    using Entity::_participant;
    using Entity::_waitset;
    using Entity::Entity;
    using Entity::finalize;
    using Entity::get_datareader;
    using Entity::get_datareader_qos;
    using Entity::get_datawriter;
    using Entity::get_datawriter_qos;
    using Entity::get_sample_loaned;
    using Entity::initialize;
    using Entity::return_loan;
    using Entity::send_sample;
    using Entity::touch_samples;
    using Entity::validate;
    using Entity::wait_for_any_sample;
    using Entity::wait_for_samples;
};

// A private member, reached by the rule that an explicit instantiation may name it.
template <typename Tag, typename Tag::type Member>
struct Reveal {
    friend typename Tag::type reveal(Tag) { return Member; }
};
struct WaitsetPoolTag {
    typedef FastObjectPool<DDSWaitSet>* details::RequesterUntypedImpl::*type;
    friend type reveal(WaitsetPoolTag);
};
template struct Reveal<WaitsetPoolTag, &details::RequesterUntypedImpl::waitset_pool>;

class OpenRequester : public Open<details::RequesterUntypedImpl> {
public:
    explicit OpenRequester(const RequesterParams& params)
        : Open(params, &register_string, &register_string, static_cast<int>(sizeof(char*)), true) {}
    using RequesterUntypedImpl::get_reply_loaned;
    using RequesterUntypedImpl::wait_for_replies;

    FastObjectPool<DDSWaitSet>& waitset_pool() { return *(this->*reveal(WaitsetPoolTag())); }

    /// With one record, where the identity of the request before stays.
    DDS_SampleIdentity_t send(const std::string& text) {
        const char* sample = text.c_str();
        send_sample(&sample, _params);
        return _params.identity;
    }

private:
    DDS_WriteParams_t _params;
};

class OpenReplier : public Open<details::ReplierUntypedImpl> {
public:
    OpenReplier() = default;
    explicit OpenReplier(const details::EntityParams& params) {
        initialize(params, &register_string, &register_string, static_cast<int>(sizeof(char*)), nullptr, true);
    }

    void reply(const DDS_SampleIdentity_t& request, const std::string& text) {
        DDS_WriteParams_t params;
        const char* sample = text.c_str();
        send_sample(&sample, request, params);
    }
};

}  // namespace norvane::test

#endif
