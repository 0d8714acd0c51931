# What a user gets: the stripped library and program, their debug files apart, man page, completions and
# docs, as a tarball and a Debian package. `./dev release` packs them, tests/release/check tries them.
set(_dist ${CMAKE_BINARY_DIR}/dist)
set(_stripped "")
foreach(_target vdkagent vdk)
    set(_file ${_dist}/$<TARGET_FILE_NAME:${_target}>)
    # The link in the stripped file is a name and a checksum: debuggers look beside the file and below lib/debug.
    add_custom_command(
        OUTPUT ${_dist}/${_target}.stamp
        COMMAND ${CMAKE_COMMAND} -E make_directory ${_dist}
        COMMAND ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE:${_target}> ${_file}.debug
        COMMAND ${CMAKE_OBJCOPY} --strip-unneeded --remove-section=.comment --add-gnu-debuglink=${_file}.debug
                $<TARGET_FILE:${_target}> ${_file}
        COMMAND ${CMAKE_COMMAND} -E touch ${_dist}/${_target}.stamp
        DEPENDS ${_target}
        VERBATIM)
    list(APPEND _stripped ${_dist}/${_target}.stamp)
endforeach()
set(_completions "")
foreach(_shell bash zsh fish)
    add_custom_command(
        OUTPUT ${_dist}/completions.${_shell}
        COMMAND vdk completions ${_shell} > ${_dist}/completions.${_shell}
        DEPENDS vdk ${_dist}/vdk.stamp
        VERBATIM)
    list(APPEND _completions ${_dist}/completions.${_shell})
endforeach()
add_custom_target(release_files DEPENDS ${_stripped} ${_completions})
add_dependencies(release_files probes_javadoc)

# The program looks for the library in ../lib/vdk.
install(PROGRAMS ${_dist}/vdk DESTINATION bin COMPONENT vdk)
install(FILES ${_dist}/libvdkagent.so DESTINATION lib/vdk COMPONENT vdk)
install(FILES ${CMAKE_BINARY_DIR}/vdk-probes-api.jar ${CMAKE_BINARY_DIR}/vdk-probes-api-javadoc.jar
        DESTINATION share/java COMPONENT vdk)
install(FILES docs/vdk.1 DESTINATION share/man/man1 COMPONENT vdk)
install(FILES ${_dist}/completions.bash DESTINATION share/bash-completion/completions RENAME vdk COMPONENT vdk)
install(FILES ${_dist}/completions.fish DESTINATION share/fish/vendor_completions.d RENAME vdk.fish COMPONENT vdk)
# Debian's zsh looks below /usr in the first folder, all others in the second.
foreach(_folder vendor-completions site-functions)
    install(FILES ${_dist}/completions.zsh DESTINATION share/zsh/${_folder} RENAME _vdk COMPONENT vdk)
endforeach()
file(GLOB _docs CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/docs/*.md)
install(FILES ${_docs} DESTINATION share/doc/vdk/docs COMPONENT vdk)
install(DIRECTORY examples DESTINATION share/doc/vdk COMPONENT vdk USE_SOURCE_PERMISSIONS)
install(FILES README.md CHANGELOG.md DESTINATION share/doc/vdk COMPONENT vdk)
install(FILES LICENSE DESTINATION share/doc/vdk RENAME copyright COMPONENT vdk)
install(FILES ${_dist}/vdk.debug DESTINATION lib/debug/usr/bin COMPONENT debug)
install(FILES ${_dist}/libvdkagent.so.debug DESTINATION lib/debug/usr/lib/vdk COMPONENT debug)

set(CPACK_GENERATOR TGZ DEB)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_SOURCE_DIR}/cmake/VdkPackages.cmake)
set(CPACK_PACKAGE_NAME vdk)
set(CPACK_PACKAGE_VENDOR "The Vandrik authors")
set(CPACK_PACKAGE_CONTACT "The Vandrik authors <vandrik@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "profiler for Java programs as they run")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/release)
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_COMPONENTS_ALL vdk debug)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_INSTALL_CMAKE_PROJECTS "${CMAKE_BINARY_DIR};vandrik;ALL;/")
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(_name vdk-${PROJECT_VERSION}-linux-${CMAKE_SYSTEM_PROCESSOR})
set(CPACK_ARCHIVE_VDK_FILE_NAME ${_name})
set(CPACK_ARCHIVE_DEBUG_FILE_NAME ${_name}-debug)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_VDK_PACKAGE_NAME vdk)
set(CPACK_DEBIAN_VDK_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_VDK_PACKAGE_DEPENDS "libc6 (>= 2.28)")
# What `vdk push` and `--host` run.
set(CPACK_DEBIAN_VDK_PACKAGE_SUGGESTS "curl, openssh-client")
include(CPack)
