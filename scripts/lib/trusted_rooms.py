"""The rooms whose tests are measured (scripts/coverage, scripts/mutate), and the test programs that try them."""
import fnmatch

ROOMS = {
    "SampledFlowTracker": ["SampledFlowTracker/*"],
    "flow_records": ["flow_records/*"],
    "local_counters": ["local_counters/*"],
    "runtime/quell": ["runtime/quell/*", "platform/Quell*.h"],
}
INCLUDES = ["platform", "runtime", "flow_records", "local_counters", "SampledFlowTracker/PexaPlugin", "SampledFlowTracker/Audit"]
PROGRAMS = ["flow_records_test", "local_counters_test", "drova_helper_test", "packet_path_test", "packet_path_no_allocation_test",
            "plugin_frame_test", "plugin_module_test", "state_machine_test", "state_machine_twin_test", "audit_test", "audit_module_test",
            "quell_test", "quell_large_test", "quell_scheduled_test", "quell_concurrency_test"]


def room_of(path):
    """The room of a file, its path from the top; None for another's."""
    for room, patterns in ROOMS.items():
        if any(fnmatch.fnmatch(path, pattern) for pattern in patterns):
            return room
    return None
