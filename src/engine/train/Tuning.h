// The figures that decide which of the engine's ways a node takes. They change how long a run
// takes, never what comes out; tests set them to send small data down every way.
#ifndef SYLVORA_ENGINE_TRAIN_TUNING_H
#define SYLVORA_ENGINE_TRAIN_TUNING_H

namespace sylvora {
namespace engine {

struct Tuning {
    int smallNode = 512;     // rows up to which a node sorts its columns
    int mostBins = 3000;     // bins of a column with many values
    int rankBits = 16;       // of a rank's distance from the first of its byte that are kept in one
                             // array, at most 16; the others have one of their own
    int fewKeys = 256;       // rows in live bins up to which they are sorted without a finer look
    int directPercent = 80;  // rows, in percent of a histogram's cells, up to which a node counts
                             // its own histogram rather than subtract its sibling's
    int chunkRows = 16384;   // of a stretch that workers share; a node with fewer rows is grown by
                             // one worker alone
    int teamRows = 4096;     // rows from which workers part the lists of a node together
    int listPercent = 10;    // columns drawn per node, in percent, from which sorted lists of all
                             // columns are kept rather than made of the drawn ones, and a
                             // regression forest grows on lists rather than on histograms
};

// The figures above, or those that the environment sets for tests, as in
// SYLVORA_TUNING="smallNode=0 mostBins=16".
Tuning CurrentTuning();

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_TUNING_H
