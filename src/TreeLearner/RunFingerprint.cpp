// What the model of a run depends on, by which a checkpoint is recognised; see RunCheckpoint.h.
//
// Every parameter is part of it unless it is listed here: a new one is not forgotten.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <functional>
#include <iterator>

#include "../CheckIn/Parameters.h"
#include "../Checkpoint/Digest.h"
#include "../god/Report.h"
#include "LossRun.h"
#include "RankRun.h"
#include "RunCheckpoint.h"
#include "RunEvaluation.h"
#include "TrainingRows.h"
#include "base/Chunks.h"
#include "base/WorkerPool.h"

using sylvora::Digest;
using sylvora::EvaluatedSet;
using sylvora::Fingerprint;
using sylvora::Text;

namespace {

// Parameters that the trees do not depend on, or only through the data; of numTree, the trees
// depend at most on whether they are grown.
constexpr const char* kWithoutEffect[] = {"mode",
                                          "absent",
                                          "pathOutput",
                                          "fileResultBase",
                                          "numTree",
                                          "sizeGroup",
                                          "numThread",
                                          "digits",
                                          "fPrint",
                                          "fTestRealTime",
                                          "evalEvery",
                                          "checkpointEvery",
                                          "temperature",
                                          "scanShrinkCutoff",
                                          "testCutoff",
                                          "fPrintLeafDistribution",
                                          "fDynamicStepLength",
                                          "fSingleTreeLayer",
                                          "fDev"};

// Some parameters are read by a single loss only, or by the losses of one model type. A program's
// loss may read what it likes, and early stopping may watch the metric pinball.
bool IsRead(const std::string& name, const CheckCfgCLS& cfg) {
    if (cfg.lossFunc == "USER") return true;
    if (name == "huberDelta") return cfg.lossFunc == "Huber";
    if (name == "quantile") return cfg.lossFunc == "Quantile" || cfg.earlyStop > 0;
    return name != "valTau" || cfg.modelType == "GBRank";
}

bool HasEffect(const sylvora::ParameterRow& row, const CheckCfgCLS& cfg) {
    return !row.fFileName && IsRead(row.name, cfg) &&
           std::none_of(std::begin(kWithoutEffect), std::end(kWithoutEffect),
                        [&row](const std::string& name) { return name == row.name; });
}

// The shortest text that reads back as the same number.
std::string ExactText(double value) {
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
}

// A value that takes one line. Names of losses and models come from the program.
std::string OneLine(std::string text) {
    const auto isControl = [](unsigned char c) { return c < ' ' || c == 0x7f; };
    std::replace_if(text.begin(), text.end(), isControl, ' ');
    return text;
}

std::string ValueOf(const sylvora::ParameterRow& row, const CheckCfgCLS& cfg) {
    const auto* const real = std::get_if<double CheckCfgCLS::*>(&row.member);
    return real != nullptr ? ExactText(cfg.**real) : OneLine(sylvora::ParameterValue(row, cfg));
}

const char* YesNo(bool fYes) {
    return fYes ? "yes" : "no";
}

template <typename Number>
std::string DigestOf(const Number* values, size_t count) {
    Digest digest;
    for (size_t i = 0; values != nullptr && i < count; ++i) {
        digest.AddReal(static_cast<double>(values[i]));
    }
    return digest.Figures();
}

// The digest of a table of `numRows` rows: of fixed pieces of it, in order. addPiece(begin, end,
// digest) adds the values of the rows [begin, end).
template <typename AddPiece>
Digest DigestByPieces(size_t numRows, sylvora::WorkerPool& pool, const AddPiece& addPiece) {
    constexpr size_t kPieceRows = 256;
    std::vector<Digest> pieceV((numRows + kPieceRows - 1) / kPieceRows);
    pool.For(static_cast<int>(pieceV.size()), [&](int index, int) {
        const size_t begin = static_cast<size_t>(index) * kPieceRows;
        Digest digest;
        addPiece(begin, std::min(begin + kPieceRows, numRows), digest);
        pieceV[static_cast<size_t>(index)] = digest;
    });
    Digest whole;
    for (const Digest& piece : pieceV) whole.Add(piece);
    return whole;
}

// The digests of all columns, of which a rank finds those of its own.
std::vector<Digest> DigestsOfColumns(const sylvora::engine::Matrix& rows, sylvora::WorkerPool& pool,
                                     const std::function<bool(int)>& isOwn) {
    constexpr int kPieceRows = 1 << 14;
    constexpr int kBlockRows = 256;  // read column by column while they are in the cache
    const size_t numColumns = static_cast<size_t>(rows.NumColumns());
    const sylvora::Chunks pieces = {rows.NumRows(), kPieceRows};
    std::vector<Digest> pieceV(static_cast<size_t>(pieces.Num()) * numColumns);
    pool.For(pieces.Num(), [&](int piece, int) {
        Digest* const digests = pieceV.data() + static_cast<size_t>(piece) * numColumns;
        const int pieceEnd = pieces.End(piece);
        for (int begin = pieces.Begin(piece), end; begin < pieceEnd; begin = end) {
            end = begin + std::min(kBlockRows, pieceEnd - begin);
            for (int column = 0; column < rows.NumColumns(); ++column) {
                if (!isOwn(column)) continue;
                Digest own = digests[column];  // stays in registers
                rows.ForColumn(column, begin, end,
                               [&own](int, double value) { own.AddReal(value); });
                digests[column] = own;
            }
        }
    });
    std::vector<Digest> columnV(numColumns);
    for (size_t i = 0; i < pieceV.size(); ++i) columnV[i % numColumns].Add(pieceV[i]);
    return columnV;
}

// A stream that was seeded is the same wherever its seed is. One that goes on from earlier draws is
// compared by its whole state.
std::string DescribeStream(const sylvora::GeneratorState& state) {
    if (state.word <= 0) return Text("seed ", state.word);
    Digest digest;
    for (const long word : {state.word, state.secondWord, state.lastOutput}) {
        digest.Add(static_cast<std::uint64_t>(word));
    }
    for (const long entry : state.table) digest.Add(static_cast<std::uint64_t>(entry));
    return "state " + digest.Figures();
}

// The entries that are digests, and what the user calls what they are of.
constexpr struct {
    const char* name;
    const char* meaning;
} kDigests[] = {
    {"random", "the random numbers begin elsewhere; restore randomSeed"},
    {"labelDigest", "the labels of the training data differ; restore them"},
    {"weightDigest", "the weights of the training rows differ; restore them"},
    {"queryDigest", "the queries of the training data differ; restore them"},
    {"predictionDigest", "the predictions to begin with differ; restore them"},
    {"valueDigest", "feature values of the training data differ; restore them"},
    {"evaluationDigest", "the set that earlyStop watches, or its metric, differs; restore it"}};

// Entries of other names than the user's.
constexpr struct {
    const char* name;
    const char* meaning;
} kNames[] = {{"objective", "an objective of the program:"},
              {"secondDerivatives", "second derivatives of the objective:"},
              {"startValue", "start value"},
              {"sampler", "a feature sampler of the program:"}};

// As the rest of a sentence that begins with the file.
std::string Explain(const sylvora::Difference& found) {
    const std::string orOther = ", or name another file";
    const std::string values = Text(found.inFile, ", not ", found.own);
    if (found.name == "library") {
        return Text("was written by version ", found.inFile, " of the library, not ", found.own,
                    "; use that version", orOther);
    }
    for (const auto& digest : kDigests) {
        if (found.name == digest.name) {
            return "is of another training: " + std::string(digest.meaning) + orOther;
        }
    }
    if (found.name == "lastRowShares") {
        return Text("is of a training with numThread ", found.inFile == "1" ? "1" : "above 1",
                    ", on which the model depends, as the last query has a single row"
                    "; restore numThread",
                    orOther);
    }
    if (found.name == "lossThreads") {
        return Text("is of a training with numThread ", values,
                    ", on which a loss of setLossFunction depends; restore it", orOther);
    }
    std::string name = found.name;
    for (const auto& known : kNames) {
        if (name == known.name) name = known.meaning;
    }
    const char* const where = name == "columns" ? ", in the widest row of all data sets" : "";
    return Text("is of a training with ", name, " ", values, where,
                "; restore the data and settings", orOther);
}

}  // namespace

int TreeLearner::RunCheckpoint::Compare(const Fingerprint& inFile) const {
    const sylvora::Difference found = sylvora::FirstDifference(inFile, fingerprint);
    return found.name.empty() ? 0 : Refuse(Explain(found));
}

// All that is known without looking at the data.
void TreeLearner::RunCheckpoint::Describe(int lastRowShares) {
    fingerprint = SettingsOf(learner);
    fingerprint.emplace_back("rows", Text(learner.sampleSize));
    fingerprint.emplace_back("columns", Text(learner.dimFea));
    fingerprint.emplace_back("classes", Text(learner.numClass));
    fingerprint.emplace_back("lastRowShares", Text(lastRowShares));
}

// Members of the learner count, which a program may have changed since its construction. Functions
// cannot be compared, only whether they are there.
Fingerprint TreeLearner::RunCheckpoint::SettingsOf(const TreeLearner& learner) {
    CheckCfgCLS cfg = learner.CfgInfo;
    cfg.modelType = learner.modelType;
    cfg.valTau = learner.valTau;
    cfg.valShrink = learner.valShrink;
    cfg.valSmpRt = learner.valSmpRt;
    Fingerprint all = {{"library", SYLVORA_VERSION}};
    for (const sylvora::ParameterRow& row : sylvora::ParameterTable()) {
        if (HasEffect(row, cfg)) all.emplace_back(row.name, ValueOf(row, cfg));
    }
    all.emplace_back("random", DescribeStream(sylvora::Draws::StateNow(learner.randGenerators[0])));
    const sylvora::TrainingOptions& options = learner.trainingOptions;
    const bool fLoss = learner.CfgInfo.lossFunc == "USER" && options.objective == nullptr;
    all.emplace_back("objective", YesNo(options.objective != nullptr));
    all.emplace_back("secondDerivatives", YesNo(options.fHessian));
    all.emplace_back("startValue", options.fStart ? ExactText(options.startValue) : "none");
    all.emplace_back("sampler", YesNo(learner.sampleFeaType != nullptr));
    all.emplace_back("covers", YesNo(options.fCovers));
    // A function of setLossFunction is called with the rows of one thread.
    all.emplace_back("lossThreads", fLoss ? Text(learner.numThread) : "any");
    return all;
}

void TreeLearner::RunCheckpoint::DescribeData() {
    const size_t numRows = static_cast<size_t>(learner.sampleSize);
    fingerprint.emplace_back("labelDigest", DigestOf(learner.labelTrV, numRows));
    fingerprint.emplace_back("weightDigest", DigestOf(learner.numPairDistinctQueV, numRows));
    fingerprint.emplace_back("queryDigest", DigestOf(learner.queryIdV, numRows));
    fingerprint.emplace_back("predictionDigest", DigestOf(learner.predictV, numRows));
    RankRun* const ranked = learner.rankRun.get();
    std::vector<Digest> columnV =
        DigestsOfColumns(sylvora::TrainingRows(learner), *learner.workers,
                         [&](int column) { return ranked == nullptr || ranked->Owns(column); });
    if (ranked != nullptr) columnV = ranked->GatherColumns(columnV);
    Digest values;
    for (const Digest& column : columnV) values.Add(column);
    fingerprint.emplace_back("valueDigest", values.Figures());
    const bool fStops = evaluation != nullptr && learner.CfgInfo.earlyStop > 0;
    fingerprint.emplace_back("evaluationDigest",
                             fStops ? evaluation->DigestOfStop().Figures() : "none");
}

// The set and the metric that decide about early stopping: nothing else that is evaluated has an
// effect on the model.
Digest TreeLearner::RunEvaluation::DigestOfStop() const {
    const Measurement& measurement = measurementV[stopAt];
    const EvaluatedSet& set = setV[measurement.set];
    const size_t width = static_cast<size_t>(learner.dimFea);
    Digest whole = DigestByPieces(set.NumRows(), *learner.workers,
                                  [&](size_t begin, size_t end, Digest& digest) {
                                      VecDle valueV((end - begin) * width);
                                      set.ReadRows(begin, end, learner.dimFea, valueV.data());
                                      for (const double value : valueV) digest.AddReal(value);
                                  });
    for (const double label : set.Measured().Labels()) whole.AddReal(label);
    for (const int query : set.Measured().Queries()) whole.AddReal(query);
    whole.AddText(learner.evaluationRecord.stopMetric);
    whole.Add(measurement.user != nullptr);
    whole.Add(measurement.IsLargerBetter());
    return whole;
}
