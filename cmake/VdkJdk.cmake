# Finds the JDK 17 whose headers the native side is built against and whose compiler builds the
# runtime classes (the last release whose javac still writes class files of level 7).
# Sets VDK_JDK (its home) and the interface target vdk_jni (jni.h, jvmti.h).
if(NOT VDK_JDK)
    # Linux's usual place, and the one of FreeBSD's ports.
    file(GLOB _vdk_jdks /usr/lib/jvm/*17* /usr/local/openjdk17*)
    foreach(_jdk IN LISTS _vdk_jdks)
        if(NOT VDK_JDK AND EXISTS ${_jdk}/include/jvmti.h AND EXISTS ${_jdk}/bin/javac)
            set(VDK_JDK ${_jdk} CACHE PATH "home of a JDK 17")
        endif()
    endforeach()
endif()
if(NOT VDK_JDK)
    message(FATAL_ERROR "no JDK 17 found under /usr/lib/jvm or /usr/local; install openjdk-17-jdk-headless (FreeBSD: openjdk17) or set -DVDK_JDK=<home>")
endif()
add_library(vdk_jni INTERFACE)
string(TOLOWER ${CMAKE_SYSTEM_NAME} _vdk_system)
target_include_directories(vdk_jni SYSTEM INTERFACE ${VDK_JDK}/include ${VDK_JDK}/include/${_vdk_system})
