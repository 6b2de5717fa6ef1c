// SPDX-License-Identifier: Apache-2.0
// The QoS that requesters and repliers have when nothing else is said: where a QoS of one's own begins.
// Thread rule: plain functions; any thread.
#ifndef NORVANE_REQUEST_REPLY_QOS_HPP
#define NORVANE_REQUEST_REPLY_QOS_HPP

#include "norvane/dds/DomainParticipant.hpp"
#include "norvane/dds/qos.hpp"
#include "norvane/export.hpp"

namespace norvane {

/// The QoS of a request or reply writer: reliable, keep-all, without a bound on samples, and with short heartbeats.
///
/// A default-constructed DDS_DataWriterQos keeps the last sample only, and has none of the protocol settings. Start from this
/// instead, change what has to be changed, and give it to RequesterParams::datawriter_qos or ReplierParams::datawriter_qos.
/// @param participant  its default QoS of writers gives the fields that request-reply leaves alone (user data, durability, names
///                     ...). Null: those of a default-constructed record.
/// @throws RuntimeException, OutOfResourcesException  the participant could not give its default.
/// @par Blocks  Never.
NORVANE_EXPORT DDS_DataWriterQos request_reply_writer_qos(DDSDomainParticipant* participant = nullptr);

/// The QoS of a request or reply reader: reliable, keep-all, without a bound on samples.
///
/// A default-constructed DDS_DataReaderQos is best-effort and keeps the last sample only: requests and replies get lost without an
/// error. Start from this instead, for RequesterParams::datareader_qos or ReplierParams::datareader_qos.
/// @param participant, throws  as for request_reply_writer_qos.
/// @par Blocks  Never.
NORVANE_EXPORT DDS_DataReaderQos request_reply_reader_qos(DDSDomainParticipant* participant = nullptr);

}  // namespace norvane

#endif
