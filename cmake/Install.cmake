# What `cmake --install` puts where: below any prefix, which may be moved afterwards.
#
#   bin                pexa-agent, flow-tracker, sft
#   lib/pexa           the runtime and the plugins
#   etc/pexa           the configurations; one that is there is left alone. With the prefix /usr: /etc/pexa
#   lib/systemd/system, lib/sysusers.d, lib/sysctl.d, share/man, share/bash-completion/completions
include(GNUInstallDirs)

set(SFT_LIBRARY_DIR lib/pexa)  # PluginLibrary looks there
set(programs pexa-agent flow-tracker sft)
set(libraries runtime PexaSampledFlowTracker PexaSftAudit)

set_target_properties(${programs} PROPERTIES INSTALL_RPATH "$ORIGIN/../${SFT_LIBRARY_DIR}")
set_target_properties(${libraries} PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS ${programs} RUNTIME DESTINATION bin)
install(TARGETS ${libraries} LIBRARY DESTINATION ${SFT_LIBRARY_DIR})

install(FILES packaging/man/sft.1 DESTINATION share/man/man1)
install(FILES packaging/man/pexa-agent.toml.5 packaging/man/flow-tracker.toml.5 DESTINATION share/man/man5)
install(FILES packaging/man/pexa-agent.8 packaging/man/flow-tracker.8 DESTINATION share/man/man8)
install(FILES packaging/completion/sft packaging/completion/pexa-agent
        DESTINATION share/bash-completion/completions)
install(FILES packaging/sysusers.d/pexa.conf DESTINATION lib/sysusers.d)
install(FILES packaging/sysctl.d/50-pexa.conf DESTINATION lib/sysctl.d)
configure_file(packaging/debian/changelog.in ${CMAKE_BINARY_DIR}/changelog @ONLY)
install(FILES packaging/debian/copyright ${CMAKE_BINARY_DIR}/changelog DESTINATION share/doc/pexa)

# What names paths of the installation depends on the prefix, which is known when it is installed.
install(CODE "set(sft_packaging \"${CMAKE_SOURCE_DIR}/packaging\")")
install(SCRIPT cmake/InstallConfigured.cmake)

include(cmake/Package.cmake)
