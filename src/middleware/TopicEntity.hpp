// SPDX-License-Identifier: Apache-2.0
// Topics and content-filtered topics of a participant. Both count what uses them, under the participant's lock.
#ifndef NORVANE_MIDDLEWARE_TOPICENTITY_HPP
#define NORVANE_MIDDLEWARE_TOPICENTITY_HPP

#include <memory>
#include <string>
#include <vector>

#include "middleware/FilterExpression.hpp"
#include "middleware/SpinHistory.hpp"
#include "middleware/StatusCondition.hpp"
#include "middleware/TypeSamplePool.hpp"
#include "norvane/dds/Topic.hpp"

namespace norvane {
namespace mw {

class TopicEntity final : public DDSTopic {
public:
    TopicEntity(DDSDomainParticipant& participant, std::string name, std::string type_name,
                std::shared_ptr<const DDS_TypeOperations> type, OwnedSamplePool pool, const DDS_TopicQos& qos);

    const char* get_name() override { return _name.c_str(); }
    const char* get_type_name() override { return _type_name.c_str(); }
    DDSDomainParticipant* get_participant() override { return &_participant; }
    DDS_ReturnCode_t get_qos(DDS_TopicQos& qos) override;
    DDSStatusCondition* get_statuscondition() override { return _status.condition(); }
    DDS_StatusMask get_status_changes() override { return 0; }
    DDS_InstanceHandle_t get_instance_handle() override { return DDS_HANDLE_NIL; }

    const std::string& name() const noexcept { return _name; }
    const std::string& type_name() const noexcept { return _type_name; }
    const std::shared_ptr<const DDS_TypeOperations>& type() const noexcept { return _type; }
    SamplePool& pool() noexcept { return *_pool; }
    /// Of the waits on all its readers.
    const std::shared_ptr<SpinHistory>& spin_history() const noexcept { return _spin_history; }

    unsigned users = 0;                // endpoints and content-filtered topics
    bool goes_with_last_user = false;  // made for a holder, and not seen by the application

private:
    DDSDomainParticipant& _participant;
    const std::string _name;
    const std::string _type_name;
    const std::shared_ptr<const DDS_TypeOperations> _type;
    const OwnedSamplePool _pool;
    const DDS_TopicQos _qos;
    const std::shared_ptr<SpinHistory> _spin_history = std::make_shared<SpinHistory>();
    QuietStatus _status{*this};
};

class ContentFilteredTopicEntity final : public DDSContentFilteredTopic {
public:
    ContentFilteredTopicEntity(TopicEntity& topic, std::string name, std::string expression, std::vector<std::string> parameters,
                               std::shared_ptr<const FilterExpression> filter);

    const char* get_name() override { return _name.c_str(); }
    const char* get_type_name() override { return _topic.get_type_name(); }
    DDSDomainParticipant* get_participant() override { return _topic.get_participant(); }
    DDSTopic* get_related_topic() override { return &_topic; }
    const char* get_filter_expression() override { return _expression.c_str(); }
    DDS_ReturnCode_t get_expression_parameters(DDS_StringSeq& parameters) override;

    TopicEntity& topic() noexcept { return _topic; }
    const std::string& name() const noexcept { return _name; }
    const std::string& expression() const noexcept { return _expression; }
    const std::vector<std::string>& parameters() const noexcept { return _parameters; }
    const std::shared_ptr<const FilterExpression>& filter() const noexcept { return _filter; }

    unsigned users = 0;  // readers

private:
    TopicEntity& _topic;
    const std::string _name;
    const std::string _expression;
    const std::vector<std::string> _parameters;
    const std::shared_ptr<const FilterExpression> _filter;
};

}  // namespace mw
}  // namespace norvane

#endif
