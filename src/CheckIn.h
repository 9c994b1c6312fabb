// The parameter set: all settings of a training run, how they are read and how they are validated.
#ifndef SYLVORA_CHECKIN_H
#define SYLVORA_CHECKIN_H

#include <string>

#include "Libdef.h"

// All parameters of a training run, as a plain value that may be copied. To use it: construct it
// with the defaults below, call ReadCfg (configuration file, then options) and CheckCfg, and pass
// it to a learner, which copies it.
//
// ReadCfg, ReadCfgFile and CheckCfg return 0, or -1 after a message on standard error; they never
// throw. What a failed call changed before the error stays changed. Different sets may be used from
// different threads.
//
// docs/parameters.md describes each parameter, its range and where it can be set.
class SYLVORA_API CheckCfgCLS {
  public:
    std::string fileTrain;
    std::string fileOut;
    std::string fileTest;
    std::string fileDev;
    std::string fileAnal;
    std::string fileTran;
    std::string fileVirScore;
    std::string filePred;
    std::string fileFA;
    std::string fileFAO;
    std::string pathOut = "./";
    std::string fileModel;
    std::string modelType;           // "GBDT", "GBRank", "RandomForest", "CART"
    std::string fRegCls = "-1";      // "REG", "CLS"; "-1": not given
    std::string randomMode = "DOC";  // sampling unit: "DOC" (rows), "QUERY" (query groups)
    std::string pathOutput;
    std::string lossFunc = "-1";  // "-1": not given
    std::string fileResultBase = "Result";
    std::string fileDebug;
    bool fPrintLeafDistribution = false;
    bool fLoad = false;
    bool fSetDynStep = false;
    bool fSingleTreeLayer = false;
    bool fDev = false;
    bool fQID = false;
    bool fTestRealTime = false;
    bool fPrint = false;
    bool fSetSeed = false;
    bool fLabelTran = false;
    bool fDebug = false;
    int numTree = 500;
    int scanShrinkCutoff = 0;
    int testCutoff = 0;
    int sizeGroup = 1;
    double valTau = 0.5;
    double valShrink = 0.09;
    double valSmpRt = 0.6;
    double temperature = 1e-8;
    double ratio = 0.6;
    int maxLeaf = 20;
    int maxDepth = 4;
    int numBound = 5;
    int numClass = 0;
    int featureDim = 0;
    // To set numThread, set both: without fSetThread, CheckCfg prints a notice and does no check.
    int numThread = 1;
    bool fSetThread = false;
    std::string mode;
    double tms_seed = 0.0;
    int digits = 6;  // significant digits of reals in the model file: 6 or 17
    // Value of an id that a data line omits: "missing", "zero". Only the command reads it; the
    // readers in god.h always fill in -2147483648.
    std::string absent = "missing";
    bool fSetAbsent = false;  // absent was given
    double huberDelta = 1.0;  // loss "Huber": the residual from which on it is linear
    double quantile = 0.5;    // loss "Quantile": the share of labels below the prediction
    int earlyStop = 0;        // rounds without progress that end a boosting; 0: off
    int evalEvery = 0;        // rounds from one line of the table of metrics to the next; 0: none
    std::string fileCheckpoint;  // a training goes on from it, and writes it; empty: none
    int checkpointEvery = 0;     // rounds, or trees, from one writing to the next; 0: by its cost

    // Reads the configuration file argv[1], then applies the option-value pairs from argv[2] on,
    // which override the file. argv[0], the program's name, is ignored.
    [[nodiscard]] int ReadCfg(int argc, char** argv);

    // Reads "key = value" lines. Unknown keys are ignored (the command warns of them).
    [[nodiscard]] int ReadCfgFile(std::string file);

    // Validates the set and normalises it for its model type: for example, the trees of a forest
    // become one round, and a missing task or loss gets its default. A second call changes nothing
    // more, except that it reduces a forest to one tree.
    [[nodiscard]] int CheckCfg();

    // The seed of the run: tms_seed if it was given, otherwise 1.
    double getRandomSeed() const;
};

#endif  // SYLVORA_CHECKIN_H
