#!/bin/sh
# Bit-identity check of the Cox runs between two builds of the library: both dump every output of
# a set of RunCoxReg and COX_Compute_ST calls (Breslow and Efron codes, case weights, strata,
# forward and backward selection, survival function and residuals) as hex floats on the
# benchmark's data, and the dumps are compared. Cells of the object form's block tables past a
# stratum's own number of distinct times were left unwritten before (whatever the memory held)
# and are 0 now: there a 0 on the new side is accepted. A line that differs is listed with the
# largest relative difference of its numbers (where results agree to rounding, not bit for bit).
#   bench/cox_bitcheck.sh OLD_BUILD_DIR [NEW_BUILD_DIR] [n ...]
# (build dirs hold libVELKORLI1M.so; data from bench/cox_r.R in build/release/bench-cox)
set -e
old=$1
new=${2:-build/release}
shift; [ $# -gt 0 ] && shift
sizes=${*:-10000 100000}
data=${VELKOR_COX_BENCH_DIR:-build/release/bench-cox}
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cat > "$tmp/dump.cpp" <<'CPP'
// Hex dump of Cox run outputs for bit-identity checks.
#include <cstdio>
#include <fstream>
#include <vector>
#include <string>
#include "velkor/VELKORLI1M.h"
#include "velkor/cox_objects.h"
static void D(const char* tag, const double* v, size_t k){ printf("%s",tag); for(size_t i=0;i<k;i++) printf(" %a",v[i]); printf("\n");}
template<class V> static void DV(const char* tag, const V& v){ printf("%s",tag); for(uint32_t i=0;i<v.count;i++) printf(" %a",(double)v.data[i]); printf("\n");}
int main(int argc,char**argv){
  long long n=std::stoll(argv[2]); const int P=5;
  std::ifstream in(std::string(argv[1])+"/cox_"+argv[2]+".bin",std::ios::binary);
  std::vector<double> all(n*7); in.read((char*)all.data(), all.size()*8);
  std::vector<double> t(all.begin(),all.begin()+n), s(all.begin()+n,all.begin()+2*n), x(all.begin()+2*n,all.end());
  std::vector<double> w(n), strata(n);
  for(long long i=0;i<n;i++){ w[i]=1.0+(i%7)*0.25; strata[i]=(double)((i*2654435761u)%3); }
  for(int variant=0; variant<6; ++variant){
    std::vector<double> beta(P), ms(12), gt(9), ct(P*9), steps(P*4), bs(n*3+10), rs(n*3+10), mean(n*3), res(n*P*3);
    std::vector<int> vs(P); int iters=100,nf=0; double z=0;
    int ties = variant%2; bool wt = variant>=2; int m = variant>=4?3:1; int sel = variant==5?0:-1;
    short survRes = variant==3? -1:0;
    int rc = RunCoxReg(t.data(), s.data(), wt?w.data():nullptr, x.data(), m>1?strata.data():nullptr, nullptr,
      (int)n, P, m, ties, &iters, 1e-9*n, sel, 0.05, 0, 0, nullptr, 0.05, survRes, 3,
      beta.data(), ms.data(), gt.data(), ct.data(), &z, steps.data(), vs.data(), &nf,
      survRes?bs.data():nullptr, survRes?rs.data():nullptr, survRes?mean.data():nullptr, survRes?res.data():nullptr);
    printf("flat variant %d rc %d iters %d nf %d z %a\n",variant,rc,iters,nf,z);
    D("beta",beta.data(),P); D("ms",ms.data(),12); D("gt",gt.data(),9); D("ct",ct.data(),P*9); D("steps",steps.data(),P*4);
    if(survRes){ D("bs",bs.data(),bs.size()); D("rs",rs.data(),rs.size()); D("res",res.data(),res.size()); }
  }
  for(int variant=0; variant<4; ++variant){
    cST_DataSet ds; ds.add(u"time",t.data(),n); ds.add(u"status",s.data(),n);
    cST_FactorsInfo fi;
    for(int j=0;j<P;j++){ ds.add(u"x"+std::u16string(1,(char16_t)(u'1'+j)), x.data()+j*n, n); fi.quantitative.push_back(2+j);}
    ds.add(u"w",w.data(),n); ds.add(u"st",strata.data(),n);
    COX_Param par; par.ties = variant==1?0:1; if(variant==2){par.weightColumn=7; par.strataColumn=8;}
    if(variant==3) par.selection=1;
    cCOX_Results r; if(variant!=0) r.suppressSurvival=-1; VELKORInfo info;
    int rc = COX_Compute_ST(ds,par,r,fi,info);
    printf("obj variant %d rc %d it %a ll %a %a conc %a\n",variant,rc,r.iterations,r.logLik,r.logLik0,r.concordance);
    DV("beta",r.beta); DV("se",r.se); DV("grad",r.gradient); DV("hess",r.hessian); DV("inv",r.inverse);
    DV("ms",r.modelStats); DV("gt",r.globalTests); DV("ct",r.coefTable); DV("steps",r.stepTable); DV("means",r.means);
    DV("design",r.design); DV("time",r.time); DV("rowIndex",r.rowIndex); DV("bstart",r.blockStart); DV("bsize",r.blockSize);
    DV("bs",r.baseSurvival); DV("rs",r.rowSurvival); DV("res",r.residuals);
  }
}
CPP
cat > "$tmp/cmp.py" <<'PY'
import sys
a=open(sys.argv[1]).read().split('\n'); b=open(sys.argv[2]).read().split('\n')
assert len(a)==len(b), (len(a),len(b))
bad=0
for i,(x,y) in enumerate(zip(a,b)):
    if x==y: continue
    xs=x.split(); ys=y.split()
    if xs[0] in ('bstart','bsize') and len(xs)==len(ys):
        for u,v in zip(xs[1:],ys[1:]):
            if u!=v and float.fromhex(v)!=0.0: bad+=1
        continue
    bad+=1
    # Size of the difference: the largest relative difference over the line's numbers.
    worst=0.0
    for u,v in zip(xs[1:],ys[1:]):
        try: a,b=float.fromhex(u),float.fromhex(v)
        except ValueError: continue
        if a!=b: worst=max(worst,abs(a-b)/max(abs(a),abs(b)))
    print('line',i+1,xs[0],'largest relative difference %.3g'%worst)
print('OK' if bad==0 else 'DIFF %d'%bad)
PY
c++ -std=c++20 -O2 -Iinclude -I. "$tmp/dump.cpp" -o "$tmp/dump" -L"$new" -lVELKORLI1M
for n in $sizes; do
  LD_LIBRARY_PATH="$old" "$tmp/dump" "$data" "$n" > "$tmp/old_$n.txt"
  LD_LIBRARY_PATH="$new" "$tmp/dump" "$data" "$n" > "$tmp/new_$n.txt"
  printf 'n = %s: ' "$n"
  python3 "$tmp/cmp.py" "$tmp/old_$n.txt" "$tmp/new_$n.txt"
done
