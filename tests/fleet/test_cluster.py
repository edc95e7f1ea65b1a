"""The cluster of the proof does what its faults need, without any sensor."""

from __future__ import annotations

import pytest
from cluster import Cluster
from server import wait_until


@pytest.fixture(name="cluster", scope="module")
def _cluster(tmp_path_factory):
    with Cluster(tmp_path_factory.mktemp("cluster"), 64 << 20) as cluster:
        yield cluster


def faults_possible(cluster):
    if cluster.why_no_faults:
        pytest.skip(cluster.why_no_faults)


def test_another_leads_when_the_leader_is_killed(cluster):
    first = cluster.wait_for_leader()
    first.end()
    assert wait_until(lambda: cluster.leader(), 60, "another leader") is not first
    first.start()
    cluster.wait_for_health()


def test_a_server_behind_a_cut_cable_is_not_reached_and_comes_back(cluster):
    faults_possible(cluster)
    follower = cluster.followers()[0]
    cluster.cut(follower)
    assert not follower.stores()
    assert not cluster.healthy()
    cluster.join(follower)
    cluster.wait_for_health()


def test_a_full_disk_has_no_room_until_it_is_emptied(cluster):
    faults_possible(cluster)
    follower = cluster.followers()[0]
    assert follower.fill() > 0
    with pytest.raises(OSError, match="No space left"):
        (follower.place.store / "more").write_bytes(b"1")
    (follower.place.store / "more").unlink()
    assert not cluster.replace(follower)  # nothing was stored, so it did not notice
    (follower.place.store / "more").write_bytes(b"1")
    cluster.wait_for_health()
