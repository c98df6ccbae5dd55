# Run by `cmake --install`, behind the plain files: configurations and systemd units with the paths of the prefix in them, and
# what is kept compressed.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(etc /etc)
else()
  set(etc ${CMAKE_INSTALL_PREFIX}/etc)
endif()
set(root "$ENV{DESTDIR}")

foreach(name pexa/agent.toml pexa/flow-tracker.toml default/pexa-agent)
  set(installed ${root}${etc}/${name})
  if(EXISTS ${installed})
    message(STATUS "Kept: ${installed}")
  else()
    message(STATUS "Installing: ${installed}")
    configure_file(${sft_packaging}/etc/${name} ${installed} COPYONLY
                   FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  endif()
endforeach()

set(bin ${CMAKE_INSTALL_PREFIX}/bin)
foreach(unit pexa-agent flow-tracker)
  set(installed ${root}${CMAKE_INSTALL_PREFIX}/lib/systemd/system/${unit}.service)
  message(STATUS "Installing: ${installed}")
  configure_file(${sft_packaging}/systemd/${unit}.service.in ${installed} @ONLY
                 FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endforeach()

set(share ${root}${CMAKE_INSTALL_PREFIX}/share)
file(CREATE_LINK pexa-agent ${share}/bash-completion/completions/flow-tracker SYMBOLIC)
execute_process(COMMAND gzip -9nf ${share}/doc/pexa/changelog ${share}/man/man1/sft.1 ${share}/man/man5/pexa-agent.toml.5
                        ${share}/man/man5/flow-tracker.toml.5 ${share}/man/man8/pexa-agent.8 ${share}/man/man8/flow-tracker.8
                COMMAND_ERROR_IS_FATAL ANY)
