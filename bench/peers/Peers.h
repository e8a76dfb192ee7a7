// The same jobs done by other libraries, only on the host, with one source file for each family.
// Each compares its results with ours.
#ifndef MAVKIT_BENCH_PEERS_PEERS_H
#define MAVKIT_BENCH_PEERS_PEERS_H

namespace bench {

void AddDiagPeers();
void AddIpcPeers();
void AddEncodingPeers();
void AddBitMaskPeers();
void AddTimePeers();
void AddSysPeers();

} // namespace bench

#endif
