#include <vqutil/LogUtil.h>

constinit Mutex LogUtil::logMutex;
