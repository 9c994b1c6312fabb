// The parameter set: every setting of a training run, its readers and its validation.
#ifndef SYLVORA_CHECKIN_H
#define SYLVORA_CHECKIN_H

#include <string>

#include "Libdef.h"

// One record of all training parameters: a plain value, copied freely. Its life: construct it with
// the defaults below, ReadCfg (configuration file, then options), CheckCfg, hand it to a learner,
// which copies it. The readers and CheckCfg write their messages to standard error, return 0 or -1
// and never throw; a failed call keeps what was applied before the failure.
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
    int numThread = 1;
    bool fSetThread = false;  // numThread was given; only then does CheckCfg check it
    std::string mode;
    double tms_seed = 0.0;
    int digits = 6;                  // significant digits of reals in the model file: 6 or 17
    std::string absent = "missing";  // an id that a data line leaves out: "missing", "zero"
    bool fSetAbsent = false;         // absent was given

    // Reads the file named by argv[1], then applies the option-value pairs from argv[2] on, which
    // override it. argv is the program's: argv[0] is ignored.
    [[nodiscard]] int ReadCfg(int argc, char** argv);

    // Reads "key = value" lines. Unknown keys are ignored (the command warns of them).
    [[nodiscard]] int ReadCfgFile(std::string file);

    // Checks the set and normalises it for its model type (a forest's trees become one round, a
    // missing task or loss gets its default, and so on). Calling it again changes nothing more,
    // except that a forest then has one tree.
    [[nodiscard]] int CheckCfg();

    // The seed of the run: tms_seed where one was given, otherwise 1.
    double getRandomSeed() const;
};

#endif  // SYLVORA_CHECKIN_H
