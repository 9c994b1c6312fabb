"""Small models for the tests: their text, and their scores computed independently.

A tree is a number (a leaf) or a tuple (column, threshold, left tree, right tree); a group is a pair
(shrink, list of trees); a model is a pair (number of classes, list of groups).
"""
import struct


def flatten(tree, nodes):
    """Appends the node lines of a tree, the root first; returns the root's index."""
    index = len(nodes)
    nodes.append(None)
    if isinstance(tree, tuple):
        column, threshold, left, right = tree
        fields = ('INTERMEDIATE', column, repr(threshold), flatten(left, nodes),
                  flatten(right, nodes), 0)
    else:
        fields = ('TERMINAL', -1, -1, -1, -1, repr(tree))
    nodes[index] = '%d %s %d %s %d %d %s' % ((index,) + fields)
    return index


def model_text(model, num_column):
    num_class, groups = model
    lines = ['%d %d %d' % (len(groups), num_class, num_column),
             '0.6 0.6 20 4 5 0.5 Square DOC GBDT',
             '0 ' * num_column]
    for position, (shrink, trees) in enumerate(groups):
        lines.append('idxTreeArray: %d size: %d shrink: %r' % (position, len(trees), shrink))
        for tree in trees:
            nodes = []
            flatten(tree, nodes)
            lines.append('0 %d' % len(nodes))
            lines.extend(nodes)
    return '\n'.join(lines) + '\n'


def walk(tree, row):
    while isinstance(tree, tuple):
        column, threshold, left, right = tree
        tree = left if row[column] <= threshold else right
    return float(tree)


def total(values):
    """The sum with one rounding per addition; sum() of newer interpreters is compensated."""
    result = 0.0
    for value in values:
        result += value
    return result


def expected_scores(model, row):
    """The list that OnlineTesting must return for the row."""
    num_class, groups = model
    values = [-1.0] * sum(len(trees) for _, trees in groups)
    votes, most, result = [0] * num_class, 0, 0.0
    for position, (shrink, trees) in enumerate(groups):
        outputs = [walk(tree, row) for tree in trees]
        if num_class == 0:
            group_value = total(outputs) / len(outputs) if outputs else float('nan')
            values[position:position + 1] = [group_value] if position < len(values) else []
        else:
            group_value = 0.0
            values[:len(outputs)] = outputs
            for output in outputs:
                votes[int(output)] += 1
                if votes[int(output)] > most:
                    group_value, most = output, votes[int(output)]
        result += struct.unpack('f', struct.pack('f', shrink))[0] * group_value
    mean = total(values) * (1.0 / (len(values) + 0.000001))
    return [result, mean if result in (0.0, 1.0) else result] + values
