// The main shared by the Google Benchmark programs that need a Qt core application.
#include <QCoreApplication>

#include <benchmark/benchmark.h>

int main(int argc, char **argv)
{
    // Headless by default; a real sound card only when asked for.
    if (qEnvironmentVariableIsEmpty("SDL_AUDIODRIVER"))
        qputenv("SDL_AUDIODRIVER", "dummy");
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
