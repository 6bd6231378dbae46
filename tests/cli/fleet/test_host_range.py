# SPDX-License-Identifier: Apache-2.0
"""Ranges of hosts beside a stranger's reading of them: ClusterShell's NodeSet, on random expressions."""

import os
import random
import subprocess

import pytest
from ClusterShell.NodeSet import NodeSet, NodeSetParseError

SEED = 20260101
EXPRESSIONS = 500


def number_range(rng):
    """"7", "3-12", "007-012", "0-9/3"."""
    first = rng.randrange(0, 120)
    last = first + rng.randrange(0, 12)
    if rng.random() < 0.4:
        width = max(len(str(last)), rng.randrange(2, 5))
        first, last = f"{first:0{width}}", f"{last:0{width}}"
    kind = rng.random()
    if kind < 0.3:
        return str(first)
    return f"{first}-{last}" + (f"/{rng.randrange(1, 5)}" if kind > 0.85 else "")


def bracket(rng):
    return "[" + ",".join(number_range(rng) for _ in range(rng.randrange(1, 4))) + "]"


def name(rng):
    """Texts and one or two brackets; a text between two of them, which NodeSet wants."""
    text = rng.choice(["bmc", "10.0.", "r", "node-"]) + bracket(rng)
    if rng.random() < 0.4:
        text += rng.choice([".", "n", "-x"]) + bracket(rng)
    return text + rng.choice(["", "", ".example", "-bmc"])


def expression(rng):
    parts = [name(rng) for _ in range(rng.randrange(1, 4))]
    if rng.random() < 0.3:
        parts.append(rng.choice(["alpha", "bmc7", "10.0.0.1"]))
    return ",".join(parts)


def answers(lines):
    """What the tool's own reading says to each line."""
    run = subprocess.run([os.environ["HOST_RANGES"]], input="".join(line + "\n" for line in lines), text=True,
                         capture_output=True, timeout=300, check=True)
    return run.stdout.splitlines()


@pytest.fixture(scope="module")
def expressions():
    rng = random.Random(SEED)
    return [expression(rng) for _ in range(EXPRESSIONS)]


def hosts_of(text):
    return sorted(text.split(","))


def test_an_expression_stands_for_the_hosts_that_the_judge_names(expressions):
    for text, answer in zip(expressions, answers(f"expand {text}" for text in expressions), strict=True):
        assert hosts_of(answer) == sorted(NodeSet(text)), text


def test_what_is_folded_is_read_by_the_judge_as_the_same_hosts(expressions):
    judged = [sorted(NodeSet(text)) for text in expressions]
    folds = answers("fold " + ",".join(hosts) for hosts in judged)
    for hosts, fold in zip(judged, folds, strict=True):
        assert sorted(NodeSet(fold)) == hosts, fold


def test_what_the_judge_folds_is_read_as_the_same_hosts(expressions):
    judged = [NodeSet(text) for text in expressions]
    for nodes, answer in zip(judged, answers(f"expand {nodes}" for nodes in judged), strict=True):
        assert hosts_of(answer) == sorted(nodes), str(nodes)


@pytest.mark.parametrize("width", [1, 4])
def test_numbers_of_one_width_fold_to_the_text_of_the_judge(width):
    rng = random.Random(SEED)
    judged = [NodeSet(",".join(f"bmc{n:0{width}}" for n in rng.sample(range(150), rng.randrange(1, 40))))
              for _ in range(EXPRESSIONS)]
    assert answers("fold " + ",".join(nodes) for nodes in judged) == [str(nodes) for nodes in judged]


def test_two_brackets_side_by_side_are_read_here_and_refused_there():
    with pytest.raises(NodeSetParseError):
        NodeSet("r[1-2][3-4]")
    assert answers(["expand r[1-2][3-4]", "expand r[1-2][03-04]x"]) == ["r13,r14,r23,r24", "r103x,r104x,r203x,r204x"]
