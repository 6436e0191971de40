# Runs at install time (cmake --install, cpack), when the prefix in force is
# known: the unit names the agent and its state document by that prefix.
# Under the prefix /usr the configuration goes to /etc, elsewhere to
# PREFIX/etc, as GNU installs do. An existing state.json is kept: it is the
# operator's.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(ACL_AGENT_ETC /etc/acl-agent)
else()
  set(ACL_AGENT_ETC ${CMAKE_INSTALL_PREFIX}/etc/acl-agent)
endif()
set(ACL_AGENT_BIN ${CMAKE_INSTALL_PREFIX}/bin/acl-agent)
set(ACL_AGENT_LIBEXEC ${CMAKE_INSTALL_PREFIX}/libexec/acl-agent)
configure_file(${FHRP_PACKAGING_SOURCE}/acl-agent.service.in
  ${FHRP_PACKAGING_BINARY}/acl-agent.service @ONLY)
file(INSTALL ${FHRP_PACKAGING_BINARY}/acl-agent.service
  DESTINATION ${CMAKE_INSTALL_PREFIX}/lib/systemd/system)
file(INSTALL ${FHRP_EXAMPLE_STATE} DESTINATION ${ACL_AGENT_ETC}
  RENAME state.example.json)
if(NOT EXISTS $ENV{DESTDIR}${ACL_AGENT_ETC}/state.json)
  file(INSTALL ${FHRP_PACKAGING_SOURCE}/state.json DESTINATION ${ACL_AGENT_ETC})
endif()
