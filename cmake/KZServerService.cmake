# kzlan-server as a system service: the systemd unit, the system user
# (sysusers.d) and the configuration file. The configuration goes to /etc for
# a /usr prefix (the Debian package) and to <prefix>/etc otherwise; the
# install-time prefix decides, as cpack and `cmake --install --prefix` set it.
install(CODE [[
  if(CMAKE_INSTALL_PREFIX MATCHES "/usr/?$")
    set(KZ_ETC_FROM_PREFIX "../etc")
  else()
    set(KZ_ETC_FROM_PREFIX "etc")
  endif()
]] COMPONENT server)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/kzlan-server.conf
  DESTINATION "\${KZ_ETC_FROM_PREFIX}/kzlan-server" COMPONENT server)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/kzlan-server.service
  DESTINATION lib/systemd/system COMPONENT server)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/kzlan-server.sysusers
  DESTINATION lib/sysusers.d RENAME kzlan-server.conf COMPONENT server)
