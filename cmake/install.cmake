# Install rules: the two shared libraries with their versioned names, the
# public header (only that one: it needs no other header of the project), a
# CMake package giving vqxml::vqxml, and vqxml.pc. The vqxml program adds
# itself in tools/. Everything is relocatable: `cmake --install build
# --prefix P` may pick any P at install time.
include(CMakePackageConfigHelpers)

set(VQXML_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vqxml)
set(VQXML_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS vqxml EXPORT vqxmlTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
                NAMELINK_COMPONENT development)
# A private dependency of libvqxml, installed beside it; no header and no
# name link, since callers never link it themselves.
install(TARGETS vqsupport EXPORT vqxmlTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
                NAMELINK_SKIP)
install(FILES ${PROJECT_SOURCE_DIR}/vqxml/vqxml.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vqxml COMPONENT development)

install(EXPORT vqxmlTargets NAMESPACE vqxml:: DESTINATION ${VQXML_CMAKE_DIR}
        COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/vqxmlConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/vqxmlConfig.cmake
                              INSTALL_DESTINATION ${VQXML_CMAKE_DIR})
# Compatible as the SONAME says: one interface per major version, so a
# request for 0.1 accepts 0.1 and later 0.x, never 1.x.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vqxmlConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vqxmlConfig.cmake
              ${PROJECT_BINARY_DIR}/vqxmlConfigVersion.cmake
        DESTINATION ${VQXML_CMAKE_DIR} COMPONENT development)

# vqxml.pc finds the prefix from its own place, so that it stays right for
# whatever prefix the install step is given.
file(RELATIVE_PATH VQXML_PC_TO_PREFIX /prefix/${VQXML_PKGCONFIG_DIR} /prefix)
string(REGEX REPLACE "/$" "" VQXML_PC_TO_PREFIX "${VQXML_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/vqxml.pc.in ${PROJECT_BINARY_DIR}/vqxml.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vqxml.pc DESTINATION ${VQXML_PKGCONFIG_DIR}
        COMPONENT development)
