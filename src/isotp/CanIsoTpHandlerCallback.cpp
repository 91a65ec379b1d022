#include <CanIsoTpHandlerCallback.h>

CanIsoTpHandlerCallback::~CanIsoTpHandlerCallback() = default;
