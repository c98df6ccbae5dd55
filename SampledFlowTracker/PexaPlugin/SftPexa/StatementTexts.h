// What the statements are called and trace, by family. "{}" stands for a value; see DrovaPrint.h.
//
// What is written to is named as the statement has it, and traced as "into( <place> ): inserting k1={},
// value={}" and "into( <place> ): deleting k1={}".
#pragma once

#include <string_view>

#include "Pavo.h"
#include "Place.h"

namespace SampledFlowTracker {

// The same for both families.
struct CommonTexts {
  static constexpr std::string_view kNotDeleted = "filter( ( config == None ) ) failed, terminating pipeline";
  static constexpr std::string_view kStillOut =
      "filter( ( !stillOutOfResources ) ) failed, terminating pipeline";
  static constexpr std::string_view kElement = "Flattening element: {}";
  static constexpr std::string_view kStillReferred =
      "filter( ( newHosEntries == 0 ) ) failed, terminating pipeline";
  static constexpr std::string_view kNoStatus =
      "filter( ( status || newStatus ) ) failed, terminating pipeline";
  static constexpr std::string_view kNoState = "filter( state ) failed, terminating pipeline";
  static constexpr std::string_view kNoValue = "filter( value ) failed, terminating pipeline";
  static constexpr std::string_view kFlattenStates =
      "flatten( [ ( oldState, decOld, 0 ), ( curState, ( decNew - incCase ), 1 ) ] ) flattening {} elements";
};

template <class Domain>
struct StatementTexts;

template <>
struct StatementTexts<Pavo::Traits::IPv4> : CommonTexts {
  static constexpr std::string_view kInputSm = "HoIpFlowConfigSm0";
  static constexpr std::string_view kInputScanTask =
      "SampledFlowTracker::SftPexaFtHOCSM-HoIpFlowConfigSm0InputScanTask";
  static constexpr std::string_view kInputHandler = "handleHoIpFlowConfig";
  static constexpr std::string_view kInputStream =
      "inputStream = from( hoFlowConfig.hoIpFlowConfig[] ): hoIpKey={} maybeConfig={}";
  static constexpr const char* kMissedNotifications =
      "We missed notifications that happened to hoIpFlowConfig before the enclosing entity got deleted";

  static constexpr std::string_view kStatusName = "statusStream";
  static constexpr std::string_view kStatusStream =
      "statusStream = merge( inputStream, replacementStream ): key={} outOfResources={} config={} status={}";
  static constexpr Place kStatusPlace = SFT_PLACE("hoFlowStatus.hoIpFlowStatus[ key ]");

  static constexpr std::string_view kOverflowName = "overflowStream";
  static constexpr std::string_view kOverflowStream =
      "overflowStream = inputStream => key={} outOfResources={} config={}";
  static constexpr std::string_view kAdmitted =
      "filter( ( ( !config ) || outOfResources ) ) failed, terminating pipeline";
  static constexpr Place kOverflowPlace = SFT_PLACE("helper.overflowEntries[ key ]");

  static constexpr std::string_view kReplacementName = "replacementStream";
  static constexpr std::string_view kReplacementStream = "replacementStream = inputStream => config={}";
  static constexpr std::string_view kFlattenOverflow =
      "flatten( helper.overflowEntries ) flattening {} elements";
  static constexpr Place kReplacementPlace = SFT_PLACE("helper.overflowEntries[ hoIpKey ]");

  static constexpr std::string_view kFlowCounterName = "flowCounterStream";
  static constexpr std::string_view kFlowCounterStream =
      "flowCounterStream = merge( inputStream, replacementStream ): key={} status={} flowCounter={}";
  static constexpr Place kFlowCounterPlace = SFT_PLACE("hoFlowCounter.hoIpFlowCounter[ key.ipFlowKey ]");

  static constexpr std::string_view kDeleteLocalName = "deleteLocalCounters";
  static constexpr std::string_view kDeleteLocal =
      "deleteLocalCounters = flowCounterStream => newHosEntries={} key={}";
  static constexpr Place kLocalPlace = SFT_PLACE("localCounter.counterCollection[ key ]");

  static constexpr std::string_view kStateCounterName = "hosStateCounterStream";
  static constexpr std::string_view kStateCounterStream =
      "hosStateCounterStream = merge( inputStream, replacementStream ): key={} status={}";
  static constexpr Place kStateCounterPlace = SFT_PLACE("hosStateCounter.hosStateIpCounter[ stateKey ]");

  static constexpr std::string_view kCopyName = "copyLocalCounters";
  static constexpr std::string_view kCopyTask = "SftPexaFtHOCSM-copyLocalCountersTask";
  static constexpr std::string_view kCopyFired = "copyLocalCounters = Poll fired";
  static constexpr std::string_view kCopyReadyHandler = "handleCopyLocalCountersCodefInputReady";
  static constexpr std::string_view kCopyReady = "Inputs for copyLocalCountersCodef ready";
  static constexpr std::string_view kFlattenLocal =
      "flatten( localCounter.counterCollection ) flattening {} elements";
  static constexpr std::string_view kCopyMerge = "Line 204: merge( zun_pipeline0, zun_pipeline1 )";
  static constexpr std::string_view kCopy =
      "Line 204: merge( copyLocalCounters ): key={} localValue={} value={}";
  static constexpr std::string_view kUnmatched = "no hoIpFlowCounter matching local counter key {}";
  static constexpr Place kCopyPlace = SFT_PLACE("hoFlowCounter.hoIpFlowCounter[ key ]");
};

template <>
struct StatementTexts<Pavo::Traits::IPv6> : CommonTexts {
  static constexpr std::string_view kInputSm = "HoIp6FlowConfigSm1";
  static constexpr std::string_view kInputScanTask =
      "SampledFlowTracker::SftPexaFtHOCSM-HoIp6FlowConfigSm1InputScanTask";
  static constexpr std::string_view kInputHandler = "handleHoIp6FlowConfig";
  static constexpr std::string_view kInputStream =
      "input6Stream = from( hoFlowConfig.hoIp6FlowConfig[] ): hoIpKey={} maybe6Config={}";
  static constexpr const char* kMissedNotifications =
      "We missed notifications that happened to hoIp6FlowConfig before the enclosing entity got deleted";

  static constexpr std::string_view kStatusName = "status6Stream";
  static constexpr std::string_view kStatusStream =
      "status6Stream = merge( input6Stream, replacement6Stream ): key={} outOfIpv6Resources={} config={} "
      "status={}";
  static constexpr Place kStatusPlace = SFT_PLACE("hoFlowStatus.hoIp6FlowStatus[ key ]");

  static constexpr std::string_view kOverflowName = "overflow6Stream";
  static constexpr std::string_view kOverflowStream =
      "overflow6Stream = input6Stream => key={} outOfIpv6Resources={} config={}";
  static constexpr std::string_view kAdmitted =
      "filter( ( ( !config ) || outOfIpv6Resources ) ) failed, terminating pipeline";
  static constexpr Place kOverflowPlace = SFT_PLACE("helper.overflow6Entries[ key ]");

  static constexpr std::string_view kReplacementName = "replacement6Stream";
  static constexpr std::string_view kReplacementStream = "replacement6Stream = input6Stream => config={}";
  static constexpr std::string_view kFlattenOverflow =
      "flatten( helper.overflow6Entries ) flattening {} elements";
  static constexpr Place kReplacementPlace = SFT_PLACE("helper.overflow6Entries[ hoIpKey ]");

  static constexpr std::string_view kFlowCounterName = "flowCounter6Stream";
  static constexpr std::string_view kFlowCounterStream =
      "flowCounter6Stream = merge( input6Stream, replacement6Stream ): key={} status={} flowCounter={}";
  static constexpr Place kFlowCounterPlace = SFT_PLACE("hoFlowCounter.hoIp6FlowCounter[ key.ipFlowKey ]");

  static constexpr std::string_view kDeleteLocalName = "deleteLocalIp6Counters";
  static constexpr std::string_view kDeleteLocal =
      "deleteLocalIp6Counters = flowCounter6Stream => newHosEntries={} key={}";
  static constexpr Place kLocalPlace = SFT_PLACE("localCounter.counterIp6Collection[ key ]");

  static constexpr std::string_view kStateCounterName = "hosStateCounter6Stream";
  static constexpr std::string_view kStateCounterStream =
      "hosStateCounter6Stream = merge( input6Stream, replacement6Stream ): key={} status={}";
  static constexpr Place kStateCounterPlace = SFT_PLACE("hosStateCounter.hosStateIp6Counter[ stateKey ]");

  static constexpr std::string_view kCopyName = "copyLocalIp6Counters";
  static constexpr std::string_view kCopyTask = "SftPexaFtHOCSM-copyLocalIp6CountersTask";
  static constexpr std::string_view kCopyFired = "copyLocalIp6Counters = Poll fired";
  static constexpr std::string_view kCopyReadyHandler = "handleCopyLocalIp6CountersCodefInputReady";
  static constexpr std::string_view kCopyReady = "Inputs for copyLocalIp6CountersCodef ready";
  static constexpr std::string_view kFlattenLocal =
      "flatten( localCounter.counterIp6Collection ) flattening {} elements";
  static constexpr std::string_view kCopyMerge = "Line 223: merge( zun_pipeline3, zun_pipeline4 )";
  static constexpr std::string_view kCopy =
      "Line 223: merge( copyLocalIp6Counters ): key={} localValue={} value={}";
  static constexpr std::string_view kUnmatched = "no hoIp6FlowCounter matching local counter key {}";
  static constexpr Place kCopyPlace = SFT_PLACE("hoFlowCounter.hoIp6FlowCounter[ key ]");
};

}  // namespace SampledFlowTracker
