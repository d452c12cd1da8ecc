// Timing shared by the benches and their native peers: the best rate of
// several runs, each long enough to measure, in samples (or frames) per
// second.
#pragma once

template <class Clock, class Run>
double BestRate(Clock now, Run run, int samples, double budget)
{
    run();
    double best = 0, start = now();
    int rounds = 0;
    do {
        int reps = 0;
        double t0 = now(), t1;
        do {
            run();
            reps++;
            t1 = now();
        } while (t1 - t0 < budget / 8);
        double r = (double)samples * reps / (t1 - t0);
        if (r > best)
            best = r;
        rounds++;
    } while (now() - start < budget || rounds < 3);
    return best;
}
