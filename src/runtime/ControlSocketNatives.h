#pragma once

#include <jni.h>

// Binds the natives of com/vandrik/runtime/ControlSocket, which own the sockets of the control
// channel. False, perhaps with a Java exception pending, means that class and library disagree.
bool registerControlSocketNatives(JNIEnv* env, jclass controlSocket);
