// As pthread_getthreadid_np(3) tells it.
#pragma once

extern "C" int pthread_getthreadid_np(void);
