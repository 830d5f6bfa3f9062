# What `make install` and the Debian package put where. The module's shared
# objects are private: they live in a folder of their own, beside a copy of
# live555 where the system has none.
include(GNUInstallDirs)
set(MRETRIEVER_LIBDIR lib/mretriever)

foreach(program mretriever camsim elogd)
  if(TARGET ${program})
    set_target_properties(${program} PROPERTIES INSTALL_RPATH "$ORIGIN/../${MRETRIEVER_LIBDIR}")
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()
foreach(library cam_mretr cam_mretr_bus mretriever_access mretriever_ts mretriever_pelco
                mretriever_pushin mretriever_announcer mretriever_broker mretriever_record cms)
  if(NOT TARGET ${library})
    continue()
  endif()
  get_target_property(kind ${library} TYPE)
  if(kind STREQUAL SHARED_LIBRARY)  # some are taken from the system where it has them
    set_target_properties(${library} PROPERTIES INSTALL_RPATH "$ORIGIN")
    install(TARGETS ${library} LIBRARY DESTINATION ${MRETRIEVER_LIBDIR})
  endif()
endforeach()
if(live555_prefix)
  install(DIRECTORY ${live555_prefix}/lib/ DESTINATION ${MRETRIEVER_LIBDIR}
          FILES_MATCHING PATTERN "*.so.*" PATTERN "libbsdstring.so" PATTERN pkgconfig EXCLUDE)
endif()

configure_file(packaging/systemd/mretriever@.service.in ${CMAKE_BINARY_DIR}/mretriever@.service @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/mretriever@.service packaging/systemd/mretriever.target
        DESTINATION lib/systemd/system)
install(PROGRAMS packaging/backoff DESTINATION ${MRETRIEVER_LIBDIR})
install(FILES packaging/sysusers.conf DESTINATION lib/sysusers.d RENAME mretriever.conf)
install(FILES packaging/man/mretriever.1 packaging/man/camsim.1
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES packaging/example.conf DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} OPTIONAL)
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs FILES_MATCHING PATTERN "*.md")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_NAME mretriever)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "mretriever maintainers <maintainers@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Media retriever: one process receives one surveillance camera")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
if(live555_prefix)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${live555_prefix}/lib)
endif()
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_SOURCE_DIR}/packaging/debian/postinst)
include(CPack)
