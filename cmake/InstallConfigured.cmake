# Run by `cmake --install`: configurations and systemd units, with the paths of the prefix in them.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(etc /etc)
else()
  set(etc ${CMAKE_INSTALL_PREFIX}/etc)
endif()
set(root "$ENV{DESTDIR}")

foreach(name agent flow-tracker)
  set(installed ${root}${etc}/pexa/${name}.toml)
  if(EXISTS ${installed})
    message(STATUS "Kept: ${installed}")
  else()
    message(STATUS "Installing: ${installed}")
    configure_file(${sft_packaging}/etc/${name}.toml ${installed} COPYONLY
                   FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  endif()
  list(APPEND CMAKE_ABSOLUTE_DESTINATION_FILES ${etc}/pexa/${name}.toml)
endforeach()

set(bin ${CMAKE_INSTALL_PREFIX}/bin)
foreach(unit pexa-agent flow-tracker)
  set(installed ${root}${CMAKE_INSTALL_PREFIX}/lib/systemd/system/${unit}.service)
  message(STATUS "Installing: ${installed}")
  configure_file(${sft_packaging}/systemd/${unit}.service.in ${installed} @ONLY
                 FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endforeach()
