// SPDX-License-Identifier: Apache-2.0
// The untyped core of a replier: reads requests, and binds every reply to the request that it answers.
#ifndef NORVANE_DETAILS_REPLIERUNTYPEDIMPL_HPP
#define NORVANE_DETAILS_REPLIERUNTYPEDIMPL_HPP

#include "norvane/details/EntityUntypedImpl.hpp"

namespace norvane {
namespace details {

/// Untyped replier: constructed, initialised once, used until destroyed.
class NORVANE_EXPORT ReplierUntypedImpl : public EntityUntypedImpl {
public:
    ~ReplierUntypedImpl() override;

    /// Supplies the reply topic, and the request topic or the application's own filter of that name.
    class NORVANE_EXPORT ReplierTopicBuilder : public EntityUntypedImpl::TopicBuilder {
    public:
        explicit ReplierTopicBuilder(ReplierUntypedImpl* replier);
        DDSTopic* create_writer_topic(const EntityParams& params, const char* reply_type_name) override;
        DDSTopicDescription* create_reader_topic(const EntityParams& params, const char* request_type_name) override;
        ~ReplierTopicBuilder() override;

    private:
        ReplierUntypedImpl* _replier;
    };

protected:
    ReplierUntypedImpl();

    /// @param request_size     octets of one request sample.
    /// @param reader_listener  may be null.
    /// @throws as EntityUntypedImpl::initialize.
    void initialize(const EntityParams& params, RegisterTypeFunc register_request_type_fnc,
                    RegisterTypeFunc register_reply_type_fnc, int request_size, DDSDataReaderListener* reader_listener,
                    bool isStringDataReader);

    /// Stores the identity of a request in the write parameters of its reply. Needs no initialised replier.
    /// @throws BadParameterException  the GUID is automatic or unknown, or the number automatic, maximal, zero or unknown; nothing
    ///                                is stored then.
    static void configure_params_for_reply(DDS_WriteParams_t& params, const DDS_SampleIdentity_t& related_request_id);

    /// Writes one reply.
    /// @param writeParams  keeps the related identity after the call. Not shared between threads.
    /// @throws as configure_params_for_reply and EntityUntypedImpl::send_sample.
    void send_sample(const void* data, const DDS_SampleIdentity_t& related_request_id, DDS_WriteParams_t& writeParams);
};

}  // namespace details
}  // namespace norvane

#endif
