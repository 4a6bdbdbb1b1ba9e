#!/usr/bin/env python3
"""Checks that every layer includes only itself and the layers beneath it.

The layers, bottom up, are the libraries of CMakeLists.txt; a file of one
layer that includes a header of a higher layer would tie the layers in a
knot that the link order no longer shows.
"""
import os
import re
import sys

# The entity types and the message parsers are one library split in two folders: entities hold
# parsers (a cross-session notification carries the parser of the message it is about).
LAYERS = [['runtime'], ['entities', 'wire'], ['discovery'], ['session'], ['label'], ['pw'], ['aux'],
          ['agent'], ['host']]
root = sys.argv[1] if len(sys.argv) > 1 else os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
rank = {name: i for i, group in enumerate(LAYERS) for name in group}
include = re.compile(r'^\s*#\s*include\s+"([a-z]+)/')
bad = []
for layer in rank:
    for dirpath, _, files in os.walk(os.path.join(root, layer)):
        for f in files:
            if not f.endswith(('.h', '.cc', '.vek')):
                continue
            path = os.path.join(dirpath, f)
            with open(path, errors='replace') as fh:
                for n, line in enumerate(fh, 1):
                    m = include.match(line) or re.match(r'^\s*(?:include|import)\s+"([a-z]+)/', line)
                    if m and m.group(1) in rank and rank[m.group(1)] > rank[layer]:
                        bad.append(f'{os.path.relpath(path, root)}:{n}: {layer} includes {m.group(1)}/')
for b in bad:
    print(b)
sys.exit(1 if bad else 0)
