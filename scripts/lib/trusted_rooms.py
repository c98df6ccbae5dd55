"""The rooms whose tests are measured (scripts/coverage, scripts/mutate), and for each the test programs that try it."""
import fnmatch

ROOMS = {
    "SampledFlowTracker": ["SampledFlowTracker/*"],
    "flow_records": ["flow_records/*"],
    "local_counters": ["local_counters/*"],
    "runtime/quell": ["runtime/quell/*", "platform/Quell*.h"],
}
INCLUDES = ["platform", "runtime", "flow_records", "local_counters", "SampledFlowTracker/PexaPlugin", "SampledFlowTracker/Audit"]
PROGRAMS = {
    "SampledFlowTracker": ["drova_helper_test", "packet_path_test", "packet_path_no_allocation_test", "plugin_frame_test", "plugin_module_test",
                           "state_machine_test", "state_machine_twin_test", "audit_test", "audit_module_test"],
    "flow_records": ["flow_records_test"],
    "local_counters": ["local_counters_test"],
    "runtime/quell": ["quell_test", "quell_large_test", "quell_scheduled_test", "quell_concurrency_test"],
}
# Of those the ones that are no use with one change after the other: they take a minute each, and those with many processes see a change by luck.
SLOW = {"quell_large_test", "quell_concurrency_test"}


def rooms(names):
    """The rooms of these names, all of them without one."""
    for name in names:
        if name not in ROOMS:
            raise SystemExit(f"there is no room {name} here; there are: {', '.join(ROOMS)}")
    return list(names) or list(ROOMS)


def programs(names, slow=True):
    return [program for name in rooms(names) for program in PROGRAMS[name] if slow or program not in SLOW]


def room_of(path):
    """The room of a file, its path from the top; None for another's."""
    for room, patterns in ROOMS.items():
        if any(fnmatch.fnmatch(path, pattern) for pattern in patterns):
            return room
    return None
