"""The data of data/ as arrays, the settings of examples/ as parameters, and small data."""
import functools
import os
import subprocess

import numpy as np
import sylvora

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
# The package lies in python/<version>/sylvora of the build folder. abspath keeps the links.
_BUILD = os.path.abspath(sylvora.__file__)
for _ in range(4):
    _BUILD = os.path.dirname(_BUILD)
COMMAND = os.environ.get('SYLVORA_COMMAND', os.path.join(_BUILD, 'sylvora'))

# By name: configuration, data, fewer rounds to save time, and further settings.
SETS = {
    'bike': ('bike', 'bike', 20, {}),
    'letter-forest': ('letter-forest', 'letter', 6, {}),
    'letter-tree': ('letter-tree', 'letter', 1, {}),
    'rank': ('rank', 'rank', 8, {}),
    'wdbc': ('wdbc', 'wdbc', 40, {}),
    'mushroom': ('wdbc', 'mushroom', 20, {'lossFunc': 'LogLoss', 'absent': 'missing'}),
}
_OF_COMMAND = ('fileTrain', 'fileTest', 'fileModel', 'filePred', 'absent')


@functools.lru_cache(maxsize=None)
def read(name, part='train', absent=float('nan')):
    """X (float64), y and query ids, or None for these, of a file of data/."""
    labels, queries, cells = [], [], []
    with open(os.path.join(ROOT, 'data', '%s.%s.txt' % (name, part))) as file:
        for row, line in enumerate(file):
            label, *tokens = line.split()
            labels.append(float(label))
            if tokens[0].startswith('qid:'):
                queries.append(int(tokens.pop(0)[4:]))
            for token in tokens:
                column, value = token.split(':')
                cells.append((row, int(column) - 1, float(value)))
    rows, columns, values = np.array(cells).T
    X = np.full((len(labels), int(columns.max()) + 1), absent)
    X[rows.astype(int), columns.astype(int)] = values
    for array in (X, y := np.array(labels)):
        array.flags.writeable = False
    return X, y, np.array(queries) if queries else None


def load(name):
    """Parameters, X, y and query ids of a set."""
    config, data, rounds, more = SETS[name]
    settings = {}
    with open(os.path.join(ROOT, 'examples', config + '.cfg')) as file:
        for line in file:
            if not line.startswith('#') and ' = ' in line:
                key, value = line.split(' = ')
                settings[key] = value.strip()
    absent = 0.0 if settings.get('absent') == 'zero' else float('nan')
    settings.update(more, numTree=str(rounds))
    params = {key: _value(text) for key, text in settings.items() if key not in _OF_COMMAND}
    return (params,) + read(data, absent=absent)


def _value(text):
    for kind in (int, float):
        try:
            return kind(text)
        except ValueError:
            pass
    return text


def run_command(*arguments):
    """Runs the command, without what a sanitizer preloads for the interpreter."""
    environment = {key: value for key, value in os.environ.items() if key != 'LD_PRELOAD'}
    subprocess.run([COMMAND, *arguments], cwd=ROOT, env=environment, check=True,
                   capture_output=True)


def command_model(name, folder, **options):
    """The bytes of the model file that the command writes."""
    config, data, rounds, more = SETS[name]
    model = os.path.join(folder, name + '.model.txt')
    options = dict(more, numTree=rounds, fileTrain='data/%s.train.txt' % data,
                   fileTest='data/%s.test.txt' % data, fileModel=model,
                   filePred=os.path.join(folder, 'scores.txt'), **options)
    arguments = ['examples/%s.cfg' % config]
    for key, value in options.items():
        arguments += ['-' + key, str(value)]
    run_command(*arguments)
    with open(model, 'rb') as file:
        return file.read()


def small_data(rows=400, columns=5, seed=3):
    """X with ties, and y with noise."""
    random = np.random.RandomState(seed)
    X = random.randint(0, 20, (rows, columns)).astype(float)
    y = X[:, 0] - 0.3 * X[:, 1] + (X[:, 2] > 9) * 4 + random.normal(size=rows)
    return X, y
