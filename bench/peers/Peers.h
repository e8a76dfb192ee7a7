// The same jobs done by other libraries, of the host alone, a source file a family. Each compares
// its results with ours.
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
