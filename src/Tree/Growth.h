// What one grow call is given, under one name.
#ifndef SYLVORA_TREE_GROWTH_H
#define SYLVORA_TREE_GROWTH_H

#include <pthread.h>

#include <vector>

#include "../Tree.h"
#include "DebugRecord.h"

struct TreeCR::Growth {
    double** featureVV;
    const double* gradV;
    const int* numDocPairQueV;
    int*& indexV;
    long* seed;
    bool fThreaded;                // search each node with several threads
    sylvora::DebugRecord* record;  // null: no debug output
    std::vector<int> selFeaV;      // the columns of the node at hand
    std::vector<pthread_t> tids;
};

#endif  // SYLVORA_TREE_GROWTH_H
