// What a learner refuses: data and models that do not fit each other, and calls from inside the
// user's functions.
#include <algorithm>
#include <string>

#include "../TreeLearner.h"
#include "../god/Report.h"

using sylvora::Fail;
using sylvora::Text;

int TreeLearner::RefuseAtWork(const char* operation) const {
    if (numAtWork == 0) return 0;
    return Fail("ERROR: ", operation, " cannot be called during training: wait for its end!\n");
}

// Names the data set or model that dimFea comes from, and its value, for messages.
std::string TreeLearner::DescribeWidth() const {
    const char* owner = testDim == dimFea    ? "the test data have"
                        : devDim == dimFea   ? "the development data have"
                        : trainDim == dimFea ? "the training data have"
                        : modelDim == dimFea ? "the model has"
                                             : "dimFea is";
    return Text(owner, " ", dimFea);
}

// Refuses to train if a later set or a model has changed dimFea. A trainDim of 0 means that the
// rows were set by hand; their width is not known then.
int TreeLearner::CheckTrainingWidth() const {
    if (trainDim == 0 || trainDim == dimFea) return 0;
    return Fail("ERROR: The training data have ", trainDim, " columns, ", DescribeWidth(),
                ": all sets must have the same columns!\n");
}

// Refuses to save a model whose trees or means have another number of columns than dimFea.
int TreeLearner::CheckModelWidth() const {
    if (getGroupNum() > 0 && modelDim != 0 && modelDim != dimFea) {
        return Fail("ERROR: The model has ", modelDim, " columns, ", DescribeWidth(),
                    ": it cannot be saved with other columns!\n");
    }
    if (featureMean != nullptr && meanDim != 0 && meanDim != dimFea) {
        return Fail("ERROR: The model has means for ", meanDim, " columns, ", DescribeWidth(),
                    ": it cannot be saved with other columns!\n");
    }
    return 0;
}
