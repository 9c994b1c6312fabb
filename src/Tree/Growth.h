// The arguments and working buffers of one grow call, passed between its steps as one record.
#ifndef SYLVORA_TREE_GROWTH_H
#define SYLVORA_TREE_GROWTH_H

#include <pthread.h>

#include <vector>

#include "../Tree.h"
#include "DebugRecord.h"

// All pointers are borrowed. One thread uses the record; the workers of a search get only the
// arrays.
struct TreeCR::Growth {
    double** featureVV;  // as for TreeCR::GrowHalf, like the next four
    const double* gradV;
    const int* numDocPairQueV;
    int*& indexV;
    long* seed;
    bool fThreaded;                // search each node with several threads
    sylvora::DebugRecord* record;  // null: no debug output
    std::vector<int> selFeaV;      // sampled columns of the current node
    std::vector<pthread_t> tids;   // worker ids of the current search
};

#endif  // SYLVORA_TREE_GROWTH_H
