// What the statements of each family are expected to trace, word for word; "{}" stands for a value.
#pragma once

#include "IpFamily.h"

namespace SampledFlowTracker {

struct ExpectedTexts {
  // Handlers.
  const char* input;
  const char* status;
  const char* overflow;
  const char* replacement;
  const char* flowCounter;
  const char* deleteLocal;
  const char* stateCounter;
  const char* copy;
  // Statements.
  const char* inputText;
  const char* statusText;
  const char* overflowText;
  const char* replacementText;
  const char* flowCounterText;
  const char* deleteLocalText;
  const char* stateCounterText;
  const char* copyFired;
  const char* copyFlatten;
  const char* copyMerge;
  const char* copyText;
  const char* copyUnmatched;
  const char* waitingFlatten;
  const char* admitted;
  // Writes.
  const char* statusInsert;
  const char* statusDelete;
  const char* overflowInsert;
  const char* overflowDelete;
  const char* promotedDelete;
  const char* counterInsert;
  const char* counterDelete;
  const char* copyInsert;
  const char* localDelete;
  const char* stateInsert;
  // Values.
  const char* addresses;
  const char* config;
  const char* statusRecord;
  const char* counterRecord;
  const char* localCounter;
};

constexpr ExpectedTexts kExpected4{
    "handleHoIpFlowConfig",
    "statusStream",
    "overflowStream",
    "replacementStream",
    "flowCounterStream",
    "deleteLocalCounters",
    "hosStateCounterStream",
    "copyLocalCounters",
    "inputStream = from( hoFlowConfig.hoIpFlowConfig[] ): hoIpKey={} maybeConfig={}",
    "statusStream = merge( inputStream, replacementStream ): key={} outOfResources={} config={} status={}",
    "overflowStream = inputStream => key={} outOfResources={} config={}",
    "replacementStream = inputStream => config={}",
    "flowCounterStream = merge( inputStream, replacementStream ): key={} status={} flowCounter={}",
    "deleteLocalCounters = flowCounterStream => newHosEntries={} key={}",
    "hosStateCounterStream = merge( inputStream, replacementStream ): key={} status={}",
    "copyLocalCounters = Poll fired",
    "flatten( localCounter.counterCollection ) flattening {} elements",
    "Line 204: merge( zun_pipeline0, zun_pipeline1 )",
    "Line 204: merge( copyLocalCounters ): key={} localValue={} value={}",
    "no hoIpFlowCounter matching local counter key {}",
    "flatten( helper.overflowEntries ) flattening {} elements",
    "filter( ( ( !config ) || outOfResources ) ) failed, terminating pipeline",
    "into( hoFlowStatus.hoIpFlowStatus[ key ] ): inserting k1={}, value={}",
    "into( hoFlowStatus.hoIpFlowStatus[ key ] ): deleting k1={}",
    "into( helper.overflowEntries[ key ] ): inserting k1={}",
    "into( helper.overflowEntries[ key ] ): deleting k1={}",
    "into( helper.overflowEntries[ hoIpKey ] ): deleting k1={}",
    "into( hoFlowCounter.hoIpFlowCounter[ key.ipFlowKey ] ): inserting k1={}, value={}",
    "into( hoFlowCounter.hoIpFlowCounter[ key.ipFlowKey ] ): deleting k1={}",
    "into( hoFlowCounter.hoIpFlowCounter[ key ] ): inserting k1={}, value={}",
    "into( localCounter.counterCollection[ key ] ): deleting k1={}",
    "into( hosStateCounter.hosStateIpCounter[ stateKey ] ): inserting k1={}, value={}",
    "0.0.0.0/0.0.0.0",
    "HoIpFlowConfig( {}, {} )",
    "HoIpFlowStatus( {}, {}, {}, {} )",
    "HoIpFlowCounter( {}, {}, {}, {}, {}, {}, {} )",
    "PexaSftHoCounter( vrf:16777215/vlan:10/0.0.0.0:{}->0.0.0.0:0/tcp, {}, {}, {}, {} )"};

constexpr ExpectedTexts kExpected6{
    "handleHoIp6FlowConfig",
    "status6Stream",
    "overflow6Stream",
    "replacement6Stream",
    "flowCounter6Stream",
    "deleteLocalIp6Counters",
    "hosStateCounter6Stream",
    "copyLocalIp6Counters",
    "input6Stream = from( hoFlowConfig.hoIp6FlowConfig[] ): hoIpKey={} maybe6Config={}",
    "status6Stream = merge( input6Stream, replacement6Stream ): key={} outOfIpv6Resources={} config={} "
    "status={}",
    "overflow6Stream = input6Stream => key={} outOfIpv6Resources={} config={}",
    "replacement6Stream = input6Stream => config={}",
    "flowCounter6Stream = merge( input6Stream, replacement6Stream ): key={} status={} flowCounter={}",
    "deleteLocalIp6Counters = flowCounter6Stream => newHosEntries={} key={}",
    "hosStateCounter6Stream = merge( input6Stream, replacement6Stream ): key={} status={}",
    "copyLocalIp6Counters = Poll fired",
    "flatten( localCounter.counterIp6Collection ) flattening {} elements",
    "Line 223: merge( zun_pipeline3, zun_pipeline4 )",
    "Line 223: merge( copyLocalIp6Counters ): key={} localValue={} value={}",
    "no hoIp6FlowCounter matching local counter key {}",
    "flatten( helper.overflow6Entries ) flattening {} elements",
    "filter( ( ( !config ) || outOfIpv6Resources ) ) failed, terminating pipeline",
    "into( hoFlowStatus.hoIp6FlowStatus[ key ] ): inserting k1={}, value={}",
    "into( hoFlowStatus.hoIp6FlowStatus[ key ] ): deleting k1={}",
    "into( helper.overflow6Entries[ key ] ): inserting k1={}",
    "into( helper.overflow6Entries[ key ] ): deleting k1={}",
    "into( helper.overflow6Entries[ hoIpKey ] ): deleting k1={}",
    "into( hoFlowCounter.hoIp6FlowCounter[ key.ipFlowKey ] ): inserting k1={}, value={}",
    "into( hoFlowCounter.hoIp6FlowCounter[ key.ipFlowKey ] ): deleting k1={}",
    "into( hoFlowCounter.hoIp6FlowCounter[ key ] ): inserting k1={}, value={}",
    "into( localCounter.counterIp6Collection[ key ] ): deleting k1={}",
    "into( hosStateCounter.hosStateIp6Counter[ stateKey ] ): inserting k1={}, value={}",
    "::/::",
    "HoIp6FlowConfig( {}, {} )",
    "HoIp6FlowStatus( {}, {}, {}, {} )",
    "HoIp6FlowCounter( {}, {}, {}, {}, {}, {}, {} )",
    "PexaSftHoIp6Counter( 16777215/10/::/::/6/{}/0, {}, {}, {}, {} )"};

template <class Domain>
constexpr const ExpectedTexts& kExpected =
    FlowTracking::IpFamily<Domain>::kIndex == 0 ? kExpected4 : kExpected6;

}  // namespace SampledFlowTracker
