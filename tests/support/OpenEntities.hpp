// SPDX-License-Identifier: Apache-2.0
// Requester, replier and bare entity with their protected members open, on the built-in string type.
#ifndef NORVANE_TESTS_SUPPORT_OPENENTITIES_HPP
#define NORVANE_TESTS_SUPPORT_OPENENTITIES_HPP

#include <string>
#include <vector>

#include "norvane/details/ReplierUntypedImpl.hpp"
#include "norvane/details/RequesterUntypedImpl.hpp"
#include "norvane/details/sample_identity.hpp"

namespace norvane::test {

inline const char* register_string(DDSTypeSupport*, DDSDomainParticipant* participant) {
    const DDSStringTypeSupport& type = DDSStringTypeSupport::get_instance();
    return type.register_type(participant) == DDS_RETCODE_OK ? type.get_type_name() : nullptr;
}

constexpr int STRING_SIZE = static_cast<int>(sizeof(char*));

/// One entity of the core. `Entity` is EntityUntypedImpl, RequesterUntypedImpl or ReplierUntypedImpl.
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
    using Entity::receive_sample_loaned;
    using Entity::return_loan;
    using Entity::send_sample;
    using Entity::touch_samples;
    using Entity::validate;
    using Entity::wait_for_any_sample;
    using Entity::wait_for_samples;
};

class OpenEntity : public Open<details::EntityUntypedImpl> {
public:
    explicit OpenEntity(bool delete_cft = false) : Open(delete_cft) {}
};

/// One reply or request that was received: its text and its two identities.
struct Received {
    std::string text;
    DDS_SampleIdentity_t identity;
    DDS_SampleIdentity_t related_identity;
};

/// Copies a loan of strings.
inline std::vector<Received> copy_loan(void** data, int count, const DDS_SampleInfoSeq& infos) {
    std::vector<Received> copies;
    for (int index = 0; index < count; ++index) {
        copies.push_back({*static_cast<char**>(data[index]), details::get_sample_identity_from_sample_info(infos[index]),
                          details::get_related_sample_identity_from_sample_info(infos[index])});
    }
    return copies;
}

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
    explicit OpenRequester(const RequesterParams& params, RegisterTypeFunc register_request = &register_string,
                           RegisterTypeFunc register_reply = &register_string)
        : Open(params, register_request, register_reply, STRING_SIZE, true) {}
    using RequesterUntypedImpl::get_reply_loaned;
    using RequesterUntypedImpl::wait_for_replies;

    FastObjectPool<DDSWaitSet>& waitset_pool() { return *(this->*reveal(WaitsetPoolTag())); }

    /// With one record, where the identity of the request before stays.
    DDS_SampleIdentity_t send(const std::string& text) {
        const char* sample = text.c_str();
        send_sample(&sample, _params);
        return _params.identity;
    }
    /// @return the texts of the replies to one request.
    std::vector<Received> replies(const DDS_SampleIdentity_t& request, bool take, DDS_Long max_samples = DDS_LENGTH_UNLIMITED) {
        void** data = nullptr;
        int count = 0;
        DDS_SampleInfoSeq infos;
        get_reply_loaned(&data, &count, infos, max_samples, request, take);
        const std::vector<Received> copies = copy_loan(data, count, infos);
        if (count > 0) {
            return_loan(data, infos);
        }
        return copies;
    }

private:
    DDS_WriteParams_t _params;
};

class OpenReplier : public Open<details::ReplierUntypedImpl> {
public:
    OpenReplier() = default;
    explicit OpenReplier(const details::EntityParams& params, DDSDataReaderListener* listener = nullptr,
                         RegisterTypeFunc register_request = &register_string, RegisterTypeFunc register_reply = &register_string) {
        initialize(params, register_request, register_reply, STRING_SIZE, listener, true);
    }

    void reply(const DDS_SampleIdentity_t& request, const std::string& text) {
        DDS_WriteParams_t params;
        const char* sample = text.c_str();
        send_sample(&sample, request, params);
    }
    /// Waits for requests and takes them.
    std::vector<Received> requests(int min_count = 1, const DDS_Duration_t& max_wait = {10, 0}) {
        void** data = nullptr;
        int count = 0;
        DDS_SampleInfoSeq infos;
        if (!receive_sample_loaned(&data, &count, infos, DDS_LENGTH_UNLIMITED, max_wait, min_count)) {
            return {};
        }
        const std::vector<Received> copies = copy_loan(data, count, infos);
        return_loan(data, infos);
        return copies;
    }
};

}  // namespace norvane::test

#endif
