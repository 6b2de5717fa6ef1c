// SPDX-License-Identifier: Apache-2.0
#include "middleware/TopicEntity.hpp"

#include <utility>

namespace norvane {
namespace mw {

TopicEntity::TopicEntity(DDSDomainParticipant& participant, std::string name, std::string type_name,
                         std::shared_ptr<const DDS_TypeOperations> type, OwnedSamplePool pool, const DDS_TopicQos& qos)
    : _participant(participant),
      _name(std::move(name)),
      _type_name(std::move(type_name)),
      _type(std::move(type)),
      _pool(std::move(pool)),
      _qos(qos) {}

DDS_ReturnCode_t TopicEntity::get_qos(DDS_TopicQos& qos) {
    return qos.topic_data.value.copy_from(_qos.topic_data.value) ? DDS_RETCODE_OK : DDS_RETCODE_OUT_OF_RESOURCES;
}

ContentFilteredTopicEntity::ContentFilteredTopicEntity(TopicEntity& topic, std::string name, std::string expression,
                                                       std::vector<std::string> parameters,
                                                       std::shared_ptr<const FilterExpression> filter)
    : _topic(topic),
      _name(std::move(name)),
      _expression(std::move(expression)),
      _parameters(std::move(parameters)),
      _filter(std::move(filter)) {}

DDS_ReturnCode_t ContentFilteredTopicEntity::get_expression_parameters(DDS_StringSeq& parameters) {
    const DDS_Long count = static_cast<DDS_Long>(_parameters.size());
    if (!parameters.ensure_length(count, count > parameters.maximum() ? count : parameters.maximum())) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    for (DDS_Long index = 0; index < count; ++index) {
        if (DDS_String_replace(&parameters[index], _parameters[static_cast<std::size_t>(index)].c_str()) == nullptr) {
            return DDS_RETCODE_OUT_OF_RESOURCES;
        }
    }
    return DDS_RETCODE_OK;
}

}  // namespace mw
}  // namespace norvane

DDSTopicDescription::~DDSTopicDescription() = default;
DDSTopicListener::~DDSTopicListener() = default;

DDSTopic* DDSTopic::narrow(DDSTopicDescription* description) { return dynamic_cast<DDSTopic*>(description); }

DDSContentFilteredTopic* DDSContentFilteredTopic::narrow(DDSTopicDescription* description) {
    return dynamic_cast<DDSContentFilteredTopic*>(description);
}
