// Makes every allocation and every thread start of a run fail in turn. The run must write a line
// and return -1; older files stay and no temporary files remain. The sanitizer builds look for
// leaks.
#include <algorithm>
#include <functional>
#include <iostream>
#include <new>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "../Support.h"
#include "../TreeLearner/EvaluationCases.h"
#include "FailingCalls.h"
#include "Modes.h"
#include "sylvora_c.h"

namespace {

using namespace sylvora::tests;

const char kOld[] = "an older file\n";

// A run and the file that it writes. `Make` prepares what the run needs, without failing calls, and
// returns the function to test, which returns a status.
struct Work {
    std::string name;
    std::function<std::function<int()>()> make;
    std::string output;
};

// All distinct lines that failures have written.
typedef std::set<std::string> Lines;

void Collect(const std::string& text, Lines& lines) {
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.insert(line);
}

// Makes each call of a kind fail in turn, until the run makes no such call.
class Sweep {
  public:
    Sweep(const TempFolder& f, Call failing, std::string cause)
        : folder(f), call(failing), complaint(std::move(cause)) {}
    ~Sweep() {
        std::cout << numRefused + numAccepted << " failed calls: " << numRefused
                  << " ended the run, " << numAccepted << " did not\n";
    }
    Sweep(const Sweep&) = delete;
    Sweep& operator=(const Sweep&) = delete;

    void Try(const Work& work) {
        if (testing::Test::HasFailure()) return;  // one fault at a time
        const Outcome whole = Observe(work.make());
        ASSERT_EQ(whole.status, 0) << work.name << "\n" << whole.err;
        expected = ReadFile(folder.Path(work.output));
        Captured err(STDERR_FILENO);
        Captured out(STDOUT_FILENO);
        folder.Write(work.output, kOld);
        for (const bool fForGood : {false, true}) {
            long first = 0;
            while (TryOnce(work, first, fForGood, err)) ++first;
            EXPECT_GT(first, 0) << work.name;
        }
    }

    const Lines& Seen() const { return lines; }

  private:
    // Returns false if the run made fewer calls.
    bool TryOnce(const Work& work, long first, bool fForGood, Captured& err) {
        const std::function<int()> run = work.make();
        int status = 0;
        err.Clear();
        {
            const FailingCalls failing(call, first, fForGood);
            status = run();
        }
        const std::string left = ReadFile(folder.Path(work.output));
        if (left != kOld) folder.Write(work.output, kOld);
        const std::string said = err.Text();
        const bool fComplained = said.find(complaint) != std::string::npos;
        EXPECT_TRUE(fComplained || (status == 0 && left == expected))
            << work.name << ", call " << first << ", status " << status << ":\n"
            << said;
        EXPECT_TRUE(left == kOld || left == expected || status == 0)
            << work.name << ", call " << first;
        for (const std::string& name : folder.Names()) EXPECT_NE(name[0], '.') << name;
        EXPECT_EQ(NumRunningThreads(), 0) << work.name << ", call " << first;
        Collect(said, lines);
        if (!FailingCalls::HasFailed()) return false;
        ++(status == 0 ? numAccepted : numRefused);
        return !testing::Test::HasFailure();
    }

    const TempFolder& folder;
    Call call;
    std::string complaint;
    std::string expected;
    Lines lines;
    int numRefused = 0;
    int numAccepted = 0;
};

const Model kKinds[] = {kBoosted[0], kBoosted[1], kBoosted[3], kOthers[0], kOthers[1],
                        kOthers[2],  kOthers[3],  kBoosted[4], kBoosted[5]};

CheckCfgCLS SettingsOf(const Model& model, const TempFolder& folder, int numThread) {
    CheckCfgCLS cfg = ConfigOf(model, 2, numThread);
    if (cfg.modelType == "GBRank") cfg.randomMode = "QUERY";
    cfg.maxDepth = 2;
    cfg.numBound = 1;
    cfg.fileModel = folder.Path("model.txt");
    return cfg;
}

// Classes, or signs for the losses of two.
Data MakeRows(const CheckCfgCLS& cfg, size_t numRows) {
    const bool fSigns = cfg.lossFunc == "Logistic" || cfg.lossFunc == "LogLoss";
    return Data(numRows, 11, fSigns ? "+-" : "CLS");
}

// All steps of a training, with a test and a development set.
int Train(TreeLearner& learner, Data& train, Data& test, Data& dev, std::string& fileTran) {
    gseed = -1;
    const auto take = [&learner](Data& rows, int type) {
        return learner.DataInput(std::move(rows.labelV), std::move(rows.rowVV), type,
                                 std::move(rows.queryV), {});
    };
    const bool fDone = take(test, 1) == 0 && take(dev, 2) == 0 && take(train, 0) == 0 &&
                       learner.ReadLabelTran(std::move(fileTran)) == 0 &&
                       learner.ParamInit() == 0 && learner.Boosting() == 0;
    return fDone ? 0 : -1;
}

struct TrainingJob {
    explicit TrainingJob(CheckCfgCLS cfg, std::string map)
        : learner(cfg),
          train(MakeRows(cfg, 30)),
          test(MakeRows(cfg, 3)),
          dev(MakeRows(cfg, 3)),
          fileTran(std::move(map)) {}

    TreeLearner learner;
    Data train, test, dev;
    std::string fileTran;
};

// With `fOwn`, messages go to a sink, and from there to standard error without allocations.
Work Training(const CheckCfgCLS& cfg, const TempFolder& folder, bool fOwn = false) {
    const auto make = [cfg, fOwn, fileTran = folder.Write("map.txt", "17 1\n")] {
        const auto job = std::make_shared<TrainingJob>(cfg, fileTran);
        job->learner.setPackedTrees(!cfg.fileCheckpoint.empty());
        if (cfg.checkpointEvery == 1) std::filesystem::remove(cfg.fileCheckpoint);
        if (fOwn) {
            job->learner.trainingOptions.sink = [](void*, int, const char* text) {
                std::cerr << "sink: " << text;
            };
        }
        return
            [job] { return Train(job->learner, job->train, job->test, job->dev, job->fileTran); };
    };
    return {cfg.modelType + " " + cfg.fRegCls, make, "model.txt"};
}

TEST(Faults, MemoryRunsOutInATraining) {
    const TempFolder folder;
    Sweep sweep(folder, Call::kAllocation, "allocate memory");
    for (const Model& kind : kKinds) {
        for (const bool fDebug : {false, true}) {
            CheckCfgCLS cfg = SettingsOf(kind, folder, 1);
            cfg.fDebug = cfg.fTestRealTime = fDebug;
            cfg.fileDebug = folder.Path("debug.txt");
            cfg.pathOutput = folder.Path("");
            sweep.Try(Training(cfg, folder));
        }
    }
    // Forces workers to share nodes, and a forest to use histograms.
    setenv("SYLVORA_TUNING", "chunkRows=4 smallNode=2 listPercent=101", 1);
    for (const Model& kind : {kKinds[0], kKinds[3], kKinds[4]}) {
        CheckCfgCLS cfg = SettingsOf(kind, folder, 3);
        sweep.Try(Training(cfg, folder));
        cfg.fileCheckpoint = folder.Path("checkpoint");
        for (const int every : {1, 2}) {  // with 1 it is written, then it is only read
            cfg.checkpointEvery = every;
            sweep.Try(Training(cfg, folder));
        }
    }
    Sweep own(folder, Call::kAllocation, "sink: ERROR: Fa");
    for (const bool fReference : {false, true}) {
        setenv("SYLVORA_PLAIN", fReference ? "1" : "0", 1);
        own.Try(Training(SettingsOf(kKinds[2], folder, 3), folder, true));
    }
    unsetenv("SYLVORA_PLAIN");
    for (const std::string& line : own.Seen()) EXPECT_NE(line.rfind("ERROR", 0), 0U) << line;
    unsetenv("SYLVORA_TUNING");
    std::istringstream purposes(
        ", when allocating labelTestV, when allocating featureTestVV, when allocating labelV,"
        " when allocating featureTestVV[], when allocating queryIdTestV, for featureMean,"
        " when allocating featureVV, when allocating featureVV[], when allocating queryIdV,"
        " when allocating labelDevV, when allocating featureDevVV, when allocating labelTrV,"
        " when allocating featureDevVV[], when allocating queryIdDevV, when random select url,"
        " when allocating gradientV, when allocating predictV, when allocating devResV,"
        " when allocating testResV, when numPairDistinctQueV, for boosting,"
        " when allocating selFeaV, for selected_fea_list in debug, for avg_predict in debug,"
        " for selected_feaValue_list in debug, for count_doc in debug,"
        " for candidate_fea_list in debug, for sqr_crit_list in debug");
    for (std::string purpose; std::getline(purposes, purpose, ',');) {
        const std::string line = "ERROR: Failed to allocate memory" + purpose + "!";
        EXPECT_EQ(sweep.Seen().count(line), 1U) << line;
    }
    for (const char* line : {"ERROR: Faied to allocate memory, too large sample size!",
                             "ERROR: Failed allocate memory when allocating statClassAll!"}) {
        EXPECT_EQ(sweep.Seen().count(line), 1U) << line;
    }
}

TEST(Faults, MemoryRunsOutInScoring) {
    const TempFolder folder;
    Sweep sweep(folder, Call::kAllocation, "allocate memory");
    for (const Model& kind : {kKinds[0], kKinds[4]}) {
        const CheckCfgCLS cfg = SettingsOf(kind, folder, 1);
        ASSERT_EQ(Training(cfg, folder).make()(), 0);
        const auto make = [&] {
            struct Job {
                TreeLearner learner;
                Data test{3, 11, "CLS"};
                std::vector<double> rowV = std::vector<double>(40 * kColumns, 1.0), scoreV{rowV};
                std::string fileModel, fileReport;
            };
            const auto job = std::make_shared<Job>();
            job->fileModel = folder.Path("model.txt");
            job->fileReport = folder.Path("report.txt");
            return [job] {
                TreeLearner& learner = job->learner;
                double score;
                const bool fDone =
                    learner.LoadModelFull(std::move(job->fileModel)) == 0 &&
                    learner.OnlineTesting(job->rowV.data(), score, kColumns, nullptr) == 0 &&
                    learner.OnlineTestingBatch(job->rowV.data(), 40, kColumns, job->scoreV.data(),
                                               2) == 0 &&
                    learner.DataInput(std::move(job->test.labelV), std::move(job->test.rowVV), 1,
                                      {}, {}) == 0 &&
                    learner.FeatureAnalysis(std::move(job->fileReport)) == 0;
                return fDone ? 0 : -1;
            };
        };
        sweep.Try({"scoring " + cfg.fRegCls, make, "report.txt"});
    }
}

TEST(Faults, MemoryRunsOutWithADescription) {
    const TempFolder folder;
    Sweep sweep(folder, Call::kAllocation, "allocate memory");
    const CheckCfgCLS cfg = SettingsOf(kKinds[0], folder, 1);
    ASSERT_EQ(Training(cfg, folder).make()(), 0);
    const auto make = [&] {
        struct Job {
            TreeLearner learner, loaded, again;
            sylvora::ModelDescription description;
            std::string text, fileModel, fileDescribed;
        };
        const auto job = std::make_shared<Job>();
        job->fileModel = folder.Path("model.txt");
        job->fileDescribed = folder.Path("described.txt");
        job->description.columnV.assign(kColumns, std::string(40, '\n'));
        job->description.settingV.emplace_back("name", "value");
        return [job] {
            using sylvora::ModelText;
            const std::string& text = job->text;
            const bool fDone =
                job->learner.LoadModelFull(std::move(job->fileModel)) == 0 &&
                ModelText::Save(job->learner, 17, &job->description, job->text) == 0 &&
                ModelText::Load(text.data(), text.size(), job->loaded, &job->description) == 0 &&
                ModelText::SaveFile(job->loaded, 17, job->description, job->fileDescribed) == 0 &&
                ModelText::LoadFile(job->fileDescribed, job->again, job->description) == 0;
            return fDone ? 0 : -1;
        };
    };
    sweep.Try({"description", make, "described.txt"});
}

// Through the C interface, which tells lack of memory from other errors.
TEST(Faults, MemoryRunsOutInPartsOfAModel) {
    const TempFolder folder;
    Sweep sweep(folder, Call::kAllocation, "out of memory");
    const CheckCfgCLS cfg = SettingsOf(kKinds[4], folder, 1);
    ASSERT_EQ(Training(cfg, folder).make()(), 0);
    const std::string file = folder.Path("model.txt"), cut = folder.Path("cut.txt");
    const auto make = [&] {
        return [&] {
            static double valueV[40 * kColumns], shareV[40 * 3];
            static int leafV[40 * 100];
            sylvora_block block = SYLVORA_BLOCK;
            block.values = valueV;
            block.num_rows = 40;
            block.num_columns = kColumns;
            block.row_stride = kColumns * sizeof(double);
            block.column_stride = sizeof(double);
            sylvora_model* model = nullptr;
            std::fill(std::begin(shareV), std::end(shareV), 7.0);
            int status = sylvora_model_load(file.c_str(), 0, &model);
            if (status == 0) status = sylvora_model_leaves(model, &block, leafV, 2);
            if (status == 0) {
                status = sylvora_model_votes(model, &block, shareV, 2);
                EXPECT_EQ(shareV[0] == 7.0, status != 0);
            }
            if (status == 0) status = sylvora_model_cut(model, 1);
            if (status == 0) status = sylvora_model_save(model, cut.c_str(), 6, 0);
            if (sylvora_out_of_memory() != 0) std::fputs("ERROR: out of memory\n", stderr);
            sylvora_model_free(model);
            return status;
        };
    };
    sweep.Try({"parts", make, "cut.txt"});
}

// Runs a mode as main() does.
int RunCommand(const std::string& fileCfg, int (*mode)(sylvora::frontend::Command&)) {
    try {
        sylvora::frontend::Command command;
        command.fileCfg = fileCfg;
        std::string argument = fileCfg;
        char* argv[] = {argument.data(), argument.data(), nullptr};
        return command.cfg.ReadCfg(2, argv) == 0 ? mode(command) : -1;
    } catch (const std::bad_alloc&) {
        std::cerr << "ERROR: out of memory\n";
        return -1;
    }
}

std::string DataText(const Data& rows) {
    std::ostringstream text;
    for (size_t i = 0; i < rows.labelV.size(); ++i) {
        text << rows.labelV[i] << " qid:" << rows.queryV[i];
        for (int j = 0; j < kColumns; ++j) {
            text << ' ' << j + 1 << ':' << rows.rowVV[i][static_cast<size_t>(j)];
        }
        text << '\n';
    }
    return text.str();
}

std::vector<Work> CommandWorks(const TempFolder& folder, const Model& kind, int numThread) {
    const CheckCfgCLS cfg = SettingsOf(kind, folder, numThread);
    const std::string data = folder.Write("data.txt", DataText(MakeRows(cfg, 30)));
    const std::string text = "modelType = " + cfg.modelType + "\nfRegCls = " + cfg.fRegCls +
                             "\nlossFunc = " + cfg.lossFunc +
                             "\nnumTree = 2\nmaxDepth = 2\nnumBound = 1\nfileTrain = " + data +
                             "\nfileTest = " + data + "\nnumThread = " + std::to_string(numThread) +
                             "\nfileModel = ";
    const std::string train = folder.Write("train.cfg", text + cfg.fileModel);
    const std::string score = folder.Write(
        "score.cfg", text + folder.Path("kept.txt") + "\nfilePred = " + folder.Path("pred.txt"));
    const auto trainMode = [](sylvora::frontend::Command& c) {
        return sylvora::frontend::Train(c);
    };
    const auto predict = [](sylvora::frontend::Command& c) {
        return sylvora::frontend::Predict(c);
    };
    const auto analyze = [](sylvora::frontend::Command& c) {
        return sylvora::frontend::Analyze(c);
    };
    EXPECT_EQ(RunCommand(train, trainMode), 0);
    std::filesystem::copy_file(cfg.fileModel, folder.Path("kept.txt"),
                               std::filesystem::copy_options::overwrite_existing);
    const auto work = [](const std::string& fileCfg, int (*mode)(sylvora::frontend::Command&)) {
        return [fileCfg, mode] { return [fileCfg, mode] { return RunCommand(fileCfg, mode); }; };
    };
    return {{"train", work(train, trainMode), "model.txt"},
            {"predict", work(score, predict), "pred.txt"},
            {"analyze", work(score, analyze), "pred.txt"}};
}

TEST(Faults, MemoryRunsOutInTheCommand) {
    const TempFolder folder;
    Sweep sweep(folder, Call::kAllocation, " memory");
    for (const int numThread : {1, 2}) {
        for (const Work& work : CommandWorks(folder, kKinds[2], numThread)) sweep.Try(work);
    }
}

TEST(Faults, ThreadsCannotBeStarted) {
    const TempFolder folder;
    const std::string line =
        "ERROR: pthread_create for multi-split nodes  error: error_code=" + std::to_string(EAGAIN);
    Sweep sweep(folder, Call::kThreadStart, line + "\n");
    for (const Model& kind : kKinds) {
        sweep.Try(Training(SettingsOf(kind, folder, 4), folder));
        for (const Work& work : CommandWorks(folder, kind, 4)) {
            if (work.name == "train") sweep.Try(work);
        }
    }
}

}  // namespace
