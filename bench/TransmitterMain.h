#pragma once

#include <BenchProcess.h>

#include <CanTxHandler.h>

#include <benchmark/benchmark.h>

namespace bench {

/// The main function of benchmarks that send: opens the transmitter of a logger of their own, in silence.
inline int runWithOpenTransmitter(int argc, char** argv)
{
    useOwnLogger();
    {
        const Silence silence;
        CanTxHandler::getInstance(true);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

} // namespace bench
