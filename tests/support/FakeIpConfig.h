#pragma once

#include <vqproc/IPConfig.h>

#include <vector>

/// Stands in for the platform's address service: list FakeIpConfig.cpp among the sources of a test. Every call is
/// shown on standard output, as "{configureIP eth1 udp=0}" or "{removeIP eth1}" with the name of the interface.
namespace fakeIpConfig {

struct request_t
{
    ethernetConfig_t config;
    bool udp;
};

/// From now on configureIP() answers so; at first it grants everything.
void grantAddresses(bool granted);

/// The record of every configureIP(), and of every removeIP(), in order.
std::vector<request_t> configured();
std::vector<ethernetConfig_t> removed();

} // namespace fakeIpConfig
