// SPDX-License-Identifier: Apache-2.0
// Everything that an application needs. For applications only: no header of the library includes it.
#ifndef NORVANE_NORVANE_HPP
#define NORVANE_NORVANE_HPP

#include "norvane/CallResult.hpp"
#include "norvane/CallTimeoutException.hpp"
#include "norvane/Dispatcher.hpp"
#include "norvane/Exception.hpp"
#include "norvane/LoanedSamples.hpp"
#include "norvane/Participant.hpp"
#include "norvane/Replier.hpp"
#include "norvane/ReplierParams.hpp"
#include "norvane/Requester.hpp"
#include "norvane/RequesterParams.hpp"
#include "norvane/Sample.hpp"
#include "norvane/SampleIterator.hpp"
#include "norvane/SampleRef.hpp"
#include "norvane/Service.hpp"
#include "norvane/Statistics.hpp"
#include "norvane/Timeout.hpp"
#include "norvane/WriteSample.hpp"
#include "norvane/WriteSampleRef.hpp"
#include "norvane/dds/DomainParticipantFactory.hpp"
#include "norvane/dds/WaitSet.hpp"
#include "norvane/dds/log.hpp"
#include "norvane/dds_type_traits.hpp"
#include "norvane/request_reply_qos.hpp"
#include "norvane/version.hpp"

#endif
