#include <vqpbus/VQPBusProxyCallback.h>

VQPBusProxyCallback::~VQPBusProxyCallback() = default;
